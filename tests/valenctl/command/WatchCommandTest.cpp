#include "tests/valenctl/CommandLine.h"

namespace Valenctl::Test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class WatchCommandTest : public CommandLine {
 protected:
   WatchCommandTest() {
      daemon.answers( "WatchStatus",
                      { { { "interfaces", { interface( "a", true ), interface( "b", true ) } } },
                        { { "interfaces", { interface( "a", true ) } } }, // nothing new
                        { { "interfaces", { interface( "a", false ) } } },
                        { { "gone", { "b" } } } } );
   }
   static Json interface( char const * name, bool ready ) {
      return { { "name", name }, { "link", "up" }, { "ready", ready }, { "notReady", "no agent" } };
   }
};

TEST_F( WatchCommandTest, EachChangeIsALine ) {
   EXPECT_EQ( run( { "watch" } ), Exit::done );
   EXPECT_EQ( onlyCall( "WatchStatus" ), Json::object() );
   EXPECT_TRUE( daemon.calls()[ 0 ].more );
   std::vector< std::string > changes;
   std::istringstream lines( out );
   for ( std::string line; std::getline( lines, line ); ) {
      EXPECT_THAT( line, ContainsRegex( "^20[0-9-]+T[0-9:.]+Z [ab]: " ) );
      changes.push_back( line.substr( line.find( ' ' ) + 1 ) );
   }
   EXPECT_THAT( changes, ::testing::ElementsAre( "a: up, ready, frames: none, sent 0",
                                                 "b: up, ready, frames: none, sent 0",
                                                 "a: up, not ready: no agent, frames: none, sent 0",
                                                 "b: removed from the configuration" ) );
}

TEST_F( WatchCommandTest, ATerminalShowsATableThatIsRedrawn ) {
   terminal.out = true;
   EXPECT_EQ( run( { "watch" } ), Exit::done );
   EXPECT_THAT( out, StartsWith( "\x1b[H\x1b[JINTERFACE " ) );
   auto const last = out.substr( out.rfind( "\x1b[H\x1b[J" ) );
   EXPECT_THAT( last, HasSubstr( "\na " ) );
   EXPECT_THAT( last, ::testing::Not( HasSubstr( "\nb " ) ) );
   EXPECT_THAT( last, HasSubstr( "no: no agent" ) );
}

TEST_F( WatchCommandTest, JsonHasAnAnswerALine ) {
   EXPECT_EQ( run( { "watch", "b", "--json" } ), Exit::done );
   EXPECT_EQ( onlyCall( "WatchStatus" ), ( Json{ { "interface", "b" } } ) );
   EXPECT_EQ( std::count( out.begin(), out.end(), '\n' ), 4 );
   EXPECT_EQ( Json::parse( out.substr( 0, out.find( '\n' ) ) )[ "interfaces" ].size(), 2u );
}

} // namespace
} // namespace Valenctl::Test
