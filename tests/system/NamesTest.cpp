// Names that are not fit to be printed: the kernel gives a device nearly any.
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class NamesTest : public RunningDaemonTest {
 protected:
   static constexpr char const * raw = "e\x1b[31m\xff\xc2\x9bz";
   static constexpr char const * escaped = "e\\x1b[31m\\xff\\xc2\\x9bz";

   // The escaped name, and nothing of the raw one.
   static auto isEscaped() {
      return AllOf( HasSubstr( escaped ), Not( HasSubstr( "\x1b" ) ), Not( HasSubstr( "\xff" ) ),
                    Not( HasSubstr( "\xc2\x9b" ) ) );
   }
};

TEST_F( NamesTest, ADeviceWithControlCharactersIsPrintedEscaped ) {
   machine_->ip( "link add '" + std::string( raw ) + "' type veth peer name other" );
   auto const trace = *work_ / "trace";
   auto const ring = *work_ / "ring";
   start( config( 0 ), { "--trace", "*/0-9", "--trace-file", trace, "--trace-ring", ring } );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_TRUE(
      eventually( [ & ] { return contentOf( trace ).find( escaped ) != std::string::npos; } ) );
   EXPECT_THAT( contentOf( trace ), isEscaped() );
   EXPECT_THAT( ctl( { "trace", "--lines", "10000" } ).out, isEscaped() );
   EXPECT_THAT( ctl( { "trace", "dump", "--file", ring } ).out, isEscaped() );
   // The same daemon's answers stay JSON.
   EXPECT_TRUE( Json::accept( ctl( { "show", "--json" } ).out ) );
}

TEST_F( NamesTest, StandardErrorGetsThemEscaped ) {
   machine_->ip( "link add '" + std::string( raw ) + "' type veth peer name other" );
   start( config( 0 ), { "--trace", "*/0-9" } );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_TRUE( logged( escaped ) );
   EXPECT_THAT( daemon_->err(), isEscaped() );
}

// The device takes over the index of the configured one during a delay: the record names it.
TEST_F( NamesTest, ADeviceRenamedInTheDelayIsRecordedEscaped ) {
   start( config( 500 ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   machine_->ip( "link set et1 down" );
   machine_->ip( "link set et1 name '" + std::string( raw ) + "'" );
   EXPECT_TRUE( eventually( [ & ] { return !lastRecord( "Ethernet1" ).empty(); } ) );
   EXPECT_THAT( ctl( { "history" } ).out, Not( HasSubstr( "\x1b" ) ) );
   EXPECT_THAT( daemon_->err(), Not( HasSubstr( "\x1b" ) ) );
}

TEST_F( NamesTest, NamesAreRefusedWithTheirPlace ) {
   configure( "interfaces:\n- {name: \"a\\e[1m\", device: et1}\n" );
   launch();
   EXPECT_EQ( daemon_->wait(), 78 );
   EXPECT_TRUE( logged( "valen.yaml:2:10: interface name is not printable text: character 2 is "
                        "U+001B\n" ) )
      << daemon_->err();
}

} // namespace
} // namespace Valen::Test
