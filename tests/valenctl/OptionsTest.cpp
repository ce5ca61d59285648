#include "valenctl/Options.h"

#include <gtest/gtest.h>

#include <vector>

namespace Valenctl {
namespace {

using Command = Options::Command;

class OptionsTest : public ::testing::Test {
 protected:
   std::optional< Options > parse( std::vector< char const * > arguments ) {
      arguments.insert( arguments.begin(), "valenctl" );
      ::testing::internal::CaptureStdout();
      ::testing::internal::CaptureStderr();
      auto options = parseOptions( static_cast< int >( arguments.size() ), arguments.data(), exit );
      out = ::testing::internal::GetCapturedStdout();
      err = ::testing::internal::GetCapturedStderr();
      return options;
   }

   Exit exit = Exit::done;
   std::string out;
   std::string err;
};

TEST_F( OptionsTest, EachCommandIsTaken ) {
   auto options = parse( { "shutdown", "Ethernet1", "--wait" } );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->command, Command::shutdown );
   EXPECT_EQ( options->interfaces, ( std::vector< std::string >{ "Ethernet1" } ) );
   EXPECT_TRUE( options->wait );
   EXPECT_EQ( options->socket, "/run/valen/valend.sock" );
   EXPECT_EQ( parse( { "enable", "Ethernet1" } )->command, Command::enable );
   options = parse( { "status", "--json", "Ethernet1" } );
   EXPECT_EQ( options->command, Command::status );
   EXPECT_TRUE( options->json );
   EXPECT_EQ( options->interface, "Ethernet1" );
   EXPECT_EQ( parse( { "status" } )->interface, "" );
   EXPECT_EQ( parse( { "history" } )->command, Command::history );
   options = parse( { "show", "status" } );
   EXPECT_EQ( options->command, Command::show );
   EXPECT_EQ( options->path, "status" );
}

TEST_F( OptionsTest, SeveralInterfacesAreNamedOrAVrfsOrAll ) {
   using Names = std::vector< std::string >;
   EXPECT_EQ( parse( { "shutdown", "a", "b" } )->interfaces, ( Names{ "a", "b" } ) );
   EXPECT_EQ( parse( { "enable", "--vrf", "red" } )->vrf, "red" );
   auto const all = parse( { "shutdown", "--all", "--wait", "--json" } );
   ASSERT_TRUE( all );
   EXPECT_TRUE( all->all && all->wait && all->json && all->interfaces.empty() );
   for ( auto const & arguments :
         std::vector< std::vector< char const * > >{ { "shutdown" },
                                                     { "shutdown", "--all", "a" },
                                                     { "enable", "--all", "--vrf", "red" } } ) {
      EXPECT_FALSE( parse( arguments ) ) << "one of the three, and no two";
      EXPECT_EQ( exit, Exit::usage );
   }
}

TEST_F( OptionsTest, WhatLooksAtInterfacesIsTaken ) {
   EXPECT_EQ( parse( { "watch" } )->command, Command::watch );
   EXPECT_EQ( parse( { "list", "--vrf", "red" } )->vrf, "red" );
   EXPECT_EQ( parse( { "explain", "a" } )->command, Command::explain );
   EXPECT_EQ( parse( { "wait", "a", "--until", "down" } )->until, "down" );
   EXPECT_TRUE( parse( { "show", "status", "--watch" } )->follow );
   EXPECT_FALSE( parse( { "explain" } ) );
   EXPECT_FALSE( parse( { "wait", "a" } ) );
   EXPECT_FALSE( parse( { "wait", "a", "--until", "noon" } ) );
   EXPECT_EQ( exit, Exit::usage );
}

TEST_F( OptionsTest, MessagesAreListedAddedAndRemoved ) {
   EXPECT_EQ( parse( { "messages", "list" } )->command, Command::messagesList );
   auto const options = parse( { "messages", "add", "radv", "a", "00", "-", "--while-running" } );
   ASSERT_TRUE( options );
   EXPECT_EQ( options->command, Command::messagesAdd );
   EXPECT_EQ( options->agent, "radv" );
   EXPECT_EQ( options->interface, "a" );
   EXPECT_EQ( options->frames, ( std::vector< std::string >{ "00", "-" } ) );
   EXPECT_TRUE( options->whileConnected );
   EXPECT_EQ( parse( { "messages", "remove", "radv", "a" } )->command, Command::messagesRemove );
   EXPECT_FALSE( parse( { "messages" } ) );
   EXPECT_FALSE( parse( { "messages", "add", "radv", "a" } ) );
}

TEST_F( OptionsTest, TraceHasCommandsOfItsOwn ) {
   EXPECT_EQ( parse( { "trace" } )->command, Command::trace );
   EXPECT_EQ( parse( { "trace", "--lines", "7" } )->lines, 7u );
   EXPECT_EQ( parse( { "trace", "follow" } )->command, Command::traceFollow );
   EXPECT_EQ( parse( { "trace", "follow", "--lines", "7" } )->lines, 7u );
   auto options = parse( { "trace", "levels", "ConfigSm/0" } );
   EXPECT_EQ( options->command, Command::traceLevels );
   EXPECT_EQ( options->levels, "ConfigSm/0" );
   options = parse( { "trace", "dump", "--file", "r" } );
   EXPECT_EQ( options->command, Command::traceDump );
   EXPECT_EQ( options->file, "r" );
   EXPECT_FALSE( parse( { "trace", "dump" } ) );
   EXPECT_EQ( exit, Exit::usage );
}

TEST_F( OptionsTest, TheSocketMayStandBeforeOrBehindTheCommand ) {
   EXPECT_EQ( parse( { "--socket", "s", "status" } )->socket, "s" );
   EXPECT_EQ( parse( { "status", "--socket", "s" } )->socket, "s" );
   EXPECT_EQ( parse( { "trace", "levels", "--socket", "s" } )->socket, "s" );
}

TEST_F( OptionsTest, WhatIsWrongIsSaidOnStandardError ) {
   for ( auto const & arguments :
         std::vector< std::vector< char const * > >{ {},
                                                     { "juggle" },
                                                     { "shutdown" },
                                                     { "enable" },
                                                     { "status", "--colour" },
                                                     { "--timeout", "-1", "status" },
                                                     { "status", "a", "b" } } ) {
      exit = Exit::done;
      EXPECT_FALSE( parse( arguments ) );
      EXPECT_EQ( exit, Exit::usage );
      EXPECT_EQ( out, "" );
      EXPECT_NE( err, "" );
   }
}

TEST_F( OptionsTest, EveryCommandExplainsItself ) {
   for ( auto const & arguments :
         std::vector< std::vector< char const * > >{ { "--help" },
                                                     { "shutdown", "-h" },
                                                     { "enable", "-h" },
                                                     { "status", "-h" },
                                                     { "trace", "-h" },
                                                     { "trace", "levels", "-h" },
                                                     { "show", "-h" } } ) {
      exit = Exit::usage;
      EXPECT_FALSE( parse( arguments ) );
      EXPECT_EQ( exit, Exit::done );
      EXPECT_NE( out, "" );
   }
   parse( { "--help" } );
   EXPECT_NE( out.find( "4 the agent did not answer in time" ), std::string::npos );
}

} // namespace
} // namespace Valenctl
