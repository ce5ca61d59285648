// A daemon that speaks LLDP beside valend: what the commands say of the goodbye that is learned from it, and of the
// shutdown that mutes it.
#include "tests/linux/UserNamespace.h"
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>

#include <linux/if_packet.h>
#include <net/ethernet.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// Sends frames as a protocol daemon does.
class Speaker {
 public:
   Speaker( TestNetNs const & netNs, std::string const & device ) {
      auto const opened = Linux::NetNsDirectories().open( netNs.name() );
      Linux::NetNsScope const inside( opened );
      fd_ = Linux::requireFd( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0 ), "socket" );
      to_.sll_family = AF_PACKET;
      to_.sll_ifindex = static_cast< int >( netNs.index( device ) );
   }
   void send( std::string const & hex ) {
      auto const frame = Settings::frameFromHex( hex );
      EXPECT_EQ( ::sendto( fd_.get(), frame.data(), frame.size(), 0,
                           reinterpret_cast< sockaddr const * >( &to_ ), sizeof to_ ),
                 static_cast< ssize_t >( frame.size() ) );
   }

 private:
   Linux::Fd fd_;
   sockaddr_ll to_{};
};

class SpeakersTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      if ( inUserNamespace() ) {
         GTEST_SKIP() << filtersNeedRoot;
      }
      RunningDaemonTest::SetUp();
   }

   static constexpr char const * alive =
      "0180c200000e02000000000188cc02070402000000000104050565746831060200780000";
   static constexpr char const * leaving =
      "0180c200000e02000000000188cc02070402000000000104050565746831060200000000";
   static constexpr char const * who = "chassis 02:00:00:00:00:01, port eth1";

   // Ethernet1 learns everything, Ethernet2 router advertisements only.
   void startLearning( int delay ) {
      start( "shutdown-delay-ms: " + std::to_string( delay ) +
             "\ngoodbyes: learned\nvrfs: [{name: red, namespace: " + red_->text() +
             "}]\n"
             "interfaces:\n"
             "- {name: Ethernet1, device: et1}\n"
             "- {name: Ethernet2, device: et2, vrf: red, goodbyes: [ra]}\n" );
   }
   // The filter may not be attached yet, so it goes on sending.
   bool becomesHeard( Speaker & speaker, std::string const & interface ) const {
      return eventually( [ & ] {
         speaker.send( alive );
         auto const answer = Json::parse( ctl( { "explain", interface, "--json" } ).out );
         return !answer[ "speakers" ].empty();
      } );
   }
   std::string out( std::vector< std::string > const & words ) const { return ctl( words ).out; }
};

TEST_F( SpeakersTest, WhatIsLearnedIsSaid ) {
   startLearning( 500 );
   Speaker one( *machine_, "et1" );
   Speaker two( *red_, "et2" );
   ASSERT_TRUE( becomesHeard( one, "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   EXPECT_THAT( out( { "status", "Ethernet1" } ), HasSubstr( " lldp 1 (learned) " ) );
   auto const list = out( { "messages", "list" } );
   EXPECT_THAT( list, HasSubstr( "\nlearned-lldp  Ethernet1  1       36     learned\n" ) );
   EXPECT_THAT( list, HasSubstr( std::string( "\nEthernet1: frame 1 of learned-lldp: " ) + who +
                                 ": ttl 120 -> 0; heard " ) );
   auto const shown = ctl( { "messages", "show", "learned-lldp", "Ethernet1" } );
   EXPECT_EQ( shown.status, 0 );
   EXPECT_THAT( shown.out, StartsWith( std::string( "frame 1, 36 bytes: lldp, " ) + who +
                                       ": says ttl 0; a goodbye\n  ttl 120 -> 0; heard " ) );
   EXPECT_THAT( shown.out, HasSubstr( std::string( "\n  " ) + leaving + "\n" ) );
   EXPECT_THAT( out( { "explain", "Ethernet1" } ),
                HasSubstr( std::string( "\n  yes  goodbye learned: lldp, " ) + who +
                           ": ttl 120 -> 0; heard " ) );

   ASSERT_TRUE( becomesHeard( two, "Ethernet2" ) );
   EXPECT_THAT( out( { "explain", "Ethernet2" } ),
                HasSubstr( std::string( "\n  no   goodbye learned: lldp, " ) + who +
                           ": not wanted: \"goodbyes: [ra]\"\n" ) );
   EXPECT_THAT( out( { "metrics" } ), HasSubstr( "\nvalen_speakers{protocol=\"lldp\"} 2\n" ) );
}

TEST_F( SpeakersTest, AFrameThatIsMalformedIsCounted ) {
   startLearning( 500 );
   Speaker one( *machine_, "et1" );
   ASSERT_TRUE( becomesHeard( one, "Ethernet1" ) );
   one.send( "0180c200000e02000000000188cc02070402000000000104050565746831060200780aff" );
   EXPECT_TRUE( eventually( [ & ] {
      return out( { "metrics" } )
                .find(
                   "\nvalen_speaker_frames_malformed_total{protocol=\"lldp\",reason=\"a TLV goes "
                   "beyond the end\"} 1\n" ) != std::string::npos;
   } ) );
}

TEST_F( SpeakersTest, AShutdownSaysWhatItMutedAndGreeted ) {
   startLearning( 1500 );
   Speaker one( *machine_, "et1" );
   ASSERT_TRUE( becomesHeard( one, "Ethernet1" ) );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );

   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_THAT( out( { "history" } ),
                HasSubstr( "aborted, muted lldp, greeted lldp (enabled after " ) );

   Process waiting( { VALENCTL, "--socket", socket(), "shutdown", "--wait", "Ethernet1" },
                    *work_ / "waiting" );
   ASSERT_TRUE(
      eventually( [ & ] { return interface( "Ethernet1" ).value( "delayed", false ); } ) );
   one.send( alive );
   EXPECT_EQ( waiting.wait(), 0 );
   EXPECT_THAT( waiting.err(), HasSubstr( " ms; muted lldp (1 frame held back)\n" ) );
   auto const record = lastRecord( "Ethernet1" );
   EXPECT_EQ(
      record[ "agents" ],
      Json::array( { { { "agent", "learned-lldp" },
                       { "sent", 1 },
                       { "refused", Json::array() },
                       { "goodbyes", { { { "protocol", "lldp" }, { "speaker", who } } } } } } ) );
   EXPECT_THAT( out( { "history" } ), HasSubstr( "  down, muted lldp (1 frame held back)  " ) );
   EXPECT_TRUE( logged( " ms, muted lldp (1 frame held back), link down, total " ) )
      << daemon_->err();
   auto const metrics = out( { "metrics" } );
   EXPECT_THAT( metrics,
                HasSubstr( "\nvalen_speaker_frames_held_back_total{protocol=\"lldp\"} 1\n" ) );
   EXPECT_THAT( metrics, HasSubstr( "\nvalen_greetings_total{protocol=\"lldp\"} 1\n" ) );
}

} // namespace
} // namespace Valen::Test
