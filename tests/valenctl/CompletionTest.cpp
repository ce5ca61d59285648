#include "valenctl/Completion.h"

#include "valenctl/Commands.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>

namespace Valenctl {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Words = std::vector< std::string >;

class CompletionTest : public ::testing::Test {
 protected:
   Words offered( Words const & words ) const {
      Words texts;
      for ( auto const & candidate : completion( commands.app(), words ).candidates ) {
         texts.push_back( candidate.text );
      }
      return texts;
   }
   Completion::Also also( Words const & words ) const {
      return completion( commands.app(), words ).also;
   }

   // That each command and option of `app`, which `words` name, and of the commands below it is
   // offered.
   void expectAllOffered( CLI::App const & app, Words words ) const {
      words.push_back( "" );
      auto const commandsOffered = offered( words );
      words.back() = "--";
      auto const optionsOffered = offered( words );
      words.pop_back();
      for ( auto const * below : app.get_subcommands( {} ) ) {
         if ( !below->get_name().empty() ) {
            EXPECT_THAT( commandsOffered, Contains( below->get_name() ) );
            auto name = words;
            name.push_back( below->get_name() );
            expectAllOffered( *below, name );
         } else {
            expectOptionsOffered( *below, optionsOffered );
         }
      }
      expectOptionsOffered( app, optionsOffered );
   }
   static void expectOptionsOffered( CLI::App const & app, Words const & offered ) {
      for ( auto const * option : app.get_options() ) {
         for ( auto const & name : option->get_lnames() ) {
            EXPECT_THAT( offered, Contains( "--" + name ) ) << app.get_name();
         }
      }
   }

   Commands const commands;
};

TEST_F( CompletionTest, EveryCommandAndOptionIsOffered ) {
   expectAllOffered( commands.app(), {} );
}

TEST_F( CompletionTest, CommandsAreOfferedByTheirBeginning ) {
   EXPECT_THAT( offered( { "sh" } ), ElementsAre( "shutdown", "show" ) );
   EXPECT_THAT( offered( { "config", "c" } ), ElementsAre( "check" ) );
   EXPECT_THAT( offered( { "messages", "" } ), ElementsAre( "list", "show", "add", "remove" ) );
   EXPECT_THAT( offered( { "juggle", "x" } ), IsEmpty() );
}

TEST_F( CompletionTest, OptionsAreOfferedAfterADash ) {
   EXPECT_THAT( offered( { "shutdown", "--w" } ), ElementsAre( "--wait" ) );
   EXPECT_THAT( offered( { "shutdown", "Vlan7", "--so" } ), ElementsAre( "--socket" ) );
   EXPECT_THAT( offered( { "messages", "add", "radv", "Vlan7", "--w" } ),
                ElementsAre( "--while-running" ) );
   EXPECT_THAT( offered( { "trace", "follow", "--l" } ), ElementsAre( "--lines" ) );
}

TEST_F( CompletionTest, OptionsAreOfferedWhereNothingElseIsExpected ) {
   EXPECT_THAT( offered( { "reload", "" } ), Contains( "--json" ) );
}

TEST_F( CompletionTest, AnOptionsValueIsOffered ) {
   EXPECT_THAT( offered( { "wait", "Vlan7", "--until", "" } ),
                ElementsAre( "ready", "up", "down", "idle" ) );
   EXPECT_THAT( offered( { "wait", "--until", "d" } ), ElementsAre( "down" ) );
   EXPECT_THAT( offered( { "--timeout", "5", "rel" } ), ElementsAre( "reload" ) );
   EXPECT_THAT( offered( { "--timeout=5", "rel" } ), ElementsAre( "reload" ) );
}

TEST_F( CompletionTest, InterfacesAreExpectedWhereTheyAreNamed ) {
   using enum Completion::Also;
   EXPECT_EQ( also( { "shutdown", "a", "b", "" } ), interfaces );
   EXPECT_EQ( also( { "status", "" } ), interfaces );
   EXPECT_EQ( also( { "status", "a", "" } ), nothing );
   EXPECT_EQ( also( { "wait", "--until", "up", "" } ), interfaces );
   EXPECT_EQ( also( { "messages", "add", "" } ), agents );
   EXPECT_EQ( also( { "messages", "add", "radv", "" } ), interfaces );
   EXPECT_EQ( also( { "messages", "remove", "radv", "" } ), interfaces );
   EXPECT_EQ( also( { "frame", "lldp", "--yaml", "" } ), interfaces );
}

TEST_F( CompletionTest, OtherNamesAreExpectedWhereTheyAreGiven ) {
   using enum Completion::Also;
   EXPECT_EQ( also( { "list", "--vrf", "" } ), vrfs );
   EXPECT_EQ( also( { "shutdown", "--vrf", "r" } ), vrfs );
   EXPECT_EQ( also( { "enable", "--device", "" } ), devices );
   EXPECT_EQ( also( { "frame", "lldp", "--device", "" } ), localDevices );
   EXPECT_EQ( also( { "frame", "lldp", "--device", "eth1", "--netns", "" } ), namespaces );
   EXPECT_EQ( also( { "messages", "remove", "" } ), agents );
}

TEST_F( CompletionTest, FilesAreExpectedWhereTheyAreNamed ) {
   using enum Completion::Also;
   EXPECT_EQ( also( { "--socket", "" } ), files );
   EXPECT_EQ( also( { "config", "check", "/etc" } ), files );
   EXPECT_EQ( also( { "trace", "dump", "--file", "" } ), files );
   EXPECT_EQ( also( { "frame", "oam", "--pcap", "" } ), files );
   EXPECT_EQ( also( { "config", "check", "--j" } ), nothing );
}

TEST_F( CompletionTest, TheLastSocketIsAsked ) {
   EXPECT_EQ( valueIn( { "status", "" }, "--socket", "default" ), "default" );
   EXPECT_EQ( valueIn( { "--socket", "a", "status", "--socket", "b", "" }, "--socket", "default" ),
              "b" );
   EXPECT_EQ( valueIn( { "status", "--socket" }, "--socket", "default" ), "default" );
}

} // namespace
} // namespace Valenctl
