// That the man page has every command, option and exit status.
#include "valenctl/Commands.h"
#include "valenctl/text/Exit.h"

#include <CLI/CLI.hpp>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace Valenctl {
namespace {

std::string read( char const * path ) {
   std::stringstream text;
   text << std::ifstream( path ).rdbuf();
   return text.str();
}

class ManPageTest : public ::testing::Test {
 protected:
   void SetUp() override { ASSERT_NE( page, "" ); }

   // The item of a command: its synopsis, and all up to the next item that begins with a command.
   std::string item( std::string const & command ) const {
      for ( std::string const end : { "\n", " " } ) {
         auto const begin = page.find( "\n.It Ic " + command + end );
         if ( begin != std::string::npos ) {
            return page.substr( begin, page.find( "\n.It Ic ", begin + 1 ) - begin );
         }
      }
      return "";
   }

   // An option is in the item of its command, or has an item of its own since several commands have it.
   bool hasOption( std::string const & command, std::string const & option ) const {
      auto const flag = "Fl -" + option;
      auto const own = item( command );
      return own.find( flag + " " ) != std::string::npos ||
             own.find( flag + "\n" ) != std::string::npos ||
             page.find( "\n.It " + flag + "\n" ) != std::string::npos ||
             page.find( "\n.It " + flag + " " ) != std::string::npos;
   }

   void expectDocumented( CLI::App const & app, std::string const & command ) const {
      for ( auto const * option : app.get_options() ) {
         for ( auto const & name : option->get_lnames() ) {
            EXPECT_TRUE( hasOption( command, name ) ) << command << " --" << name;
         }
      }
      for ( auto const * below : app.get_subcommands( {} ) ) {
         if ( below->get_name().empty() ) {
            expectDocumented( *below, command ); // a group of options
            continue;
         }
         auto const name = command.empty() ? below->get_name() : command + " " + below->get_name();
         if ( below->get_require_subcommand_min() == 0 ) { // else it only groups others
            EXPECT_NE( item( name ), "" ) << name;
         }
         expectDocumented( *below, name );
      }
   }

   std::string const page = read( MAN_PAGE );
};

TEST_F( ManPageTest, EveryCommandAndOptionIsDocumented ) {
   Commands const commands;
   expectDocumented( commands.app(), "" );
}

TEST_F( ManPageTest, EveryExitStatusIsDocumented ) {
   auto const section = page.substr( page.find( "\n.Sh EXIT STATUS" ) );
   for ( auto const exit :
         { Exit::done, Exit::failed, Exit::usage, Exit::notConnected, Exit::timedOut } ) {
      EXPECT_NE( section.find( "\n.It " + std::to_string( static_cast< int >( exit ) ) + "\n" ),
                 std::string::npos );
   }
}

} // namespace
} // namespace Valenctl
