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
   EXPECT_EQ( options->interface, "Ethernet1" );
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
