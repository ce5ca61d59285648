#include "valenctl/UnknownWord.h"

#include "valenctl/Commands.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( UnknownWordTest, TheNearestIsASlipOrTwoAway ) {
   std::vector< std::string > const words{ "status", "list", "wait", "watch", "shutdown" };
   for ( auto const * slip : { "statu", "sttaus", "satus", "statuss", "stafus", "stat" } ) {
      EXPECT_EQ( nearest( slip, words ), "status" ) << slip;
   }
   EXPECT_EQ( nearest( "shtudonw", words ), "shutdown" );
   EXPECT_EQ( nearest( "wat", words ), "" ) << "wait and watch begin with it or are as near";
   EXPECT_EQ( nearest( "juggle", words ), "" );
   EXPECT_EQ( nearest( "", words ), "" );
   EXPECT_EQ( nearest( "x", {} ), "" );
}

TEST( UnknownWordTest, WordsThatExistAreNot ) {
   Commands const commands;
   auto const unknown = [ & ]( std::vector< std::string > const & words ) {
      return unknownWord( commands.app(), words );
   };
   EXPECT_EQ( unknown( {} ), "command missing" );
   EXPECT_EQ( unknown( { "frame", "--json" } ), "frame kind missing" );
   EXPECT_EQ( unknown( { "trace" } ), "" );
   EXPECT_EQ( unknown( { "--timeout", "-1", "status" } ), "" ) << "a value";
   EXPECT_EQ( unknown( { "shutdown", "Eth1", "shtudown", "--wait" } ), "" ) << "arguments";
   EXPECT_EQ( unknown( { "messages", "add", "a", "b", "-" } ), "" ) << "standard input";
   EXPECT_EQ( unknown( { "frame", "pim", "-6", "--netns=x" } ), "" );
   EXPECT_EQ( unknown( { "show", "--", "--path" } ), "" );
   EXPECT_EQ( unknown( { "config", "check", "--json" } ), "" );
   EXPECT_EQ( unknown( { "config", "chek" } ),
              "unknown command \"chek\"; did you mean \"check\"?" );
   EXPECT_EQ( unknown( { "trace", "--liens", "5", "folow" } ),
              "unknown option \"--liens\"; did you mean \"--lines\"?" );
   EXPECT_EQ( unknown( { "status", "-x" } ), "unknown option \"-x\"" );
}

} // namespace
} // namespace Valenctl
