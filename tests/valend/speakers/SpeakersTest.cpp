// Speakers on a device of the test, with filters of the kernel.
#include "valend/speakers/Speakers.h"

#include "tests/linux/TestNetwork.h"
#include "tests/linux/UserNamespace.h"

#include <gmock/gmock.h>

#include <thread>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Valen::Test::TestNetNs;

std::string bytes( std::initializer_list< int > values ) {
   return std::string( values.begin(), values.end() );
}

// An LLDPDU of the port with that number, with the time to live.
std::string lldp( int port, int ttl = 120 ) {
   return bytes( { 1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x88, 0xcc } ) +
          bytes( { 2, 7, 4, 2, 0, 0, 0, 0, 1, 4, 3, 7, 'p', port, 6, 2, 0, ttl, 0, 0 } );
}

// Frames from and to the daemons of a device.
class PacketSocket {
 public:
   PacketSocket( TestNetNs const & netNs, std::string const & device ) {
      auto const opened = Valen::Linux::NetNsDirectories().open( netNs.name() );
      Valen::Linux::NetNsScope const inside( opened );
      fd_ = Valen::Linux::requireFd(
         ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons( lldpType ) ),
         "socket" );
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_protocol = htons( lldpType );
      address.sll_ifindex = static_cast< int >( netNs.index( device ) );
      if ( ::bind( fd_.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ) < 0 ) {
         Valen::Linux::throwErrno( "bind", errno );
      }
   }

   void send( std::string const & frame ) {
      EXPECT_EQ( ::send( fd_.get(), frame.data(), frame.size(), 0 ),
                 static_cast< ssize_t >( frame.size() ) );
   }
   // What has been received since.
   std::vector< std::string > heard() {
      std::vector< std::string > frames;
      std::string frame( 2000, '\0' );
      for ( ssize_t length; ( length = ::recv( fd_.get(), frame.data(), frame.size(), 0 ) ) > 0; ) {
         frames.push_back( frame.substr( 0, static_cast< std::size_t >( length ) ) );
      }
      return frames;
   }

 private:
   static constexpr int lldpType = 0x88cc;
   Valen::Linux::Fd fd_;
};

class SpeakersTest : public Valen::Test::NetworkTest {
 protected:
   void SetUp() override {
      if ( Valen::Test::inUserNamespace() ) {
         GTEST_SKIP() << Valen::Test::filtersNeedRoot;
      }
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      near.emplace();
      far.emplace();
      near->veth( "et1", *far, "far1" );
      begin();
   }

   // As after a start of valend; what a previous one had is gone.
   void begin() {
      speakers.reset();
      speakers.emplace(
         loop_, Valen::Linux::NetNsDirectories(),
         [ this ]( auto const & place ) {
            return place.netNs == near->text() ? near->index( place.device ) : 0;
         },
         conditions );
      speakers->changedIs( [ this ]( auto const & place ) { changed.push_back( place ); } );
   }

   LinkPlace et1() const { return { near->text(), "et1" }; }
   void attach() {
      speakers->attaching().placeIs( et1(), 1 );
      ASSERT_TRUE( turnUntil( [ this ] { return filtered(); } ) )
         << speakers->attaching().whyNot( et1() );
   }
   bool filtered() const { return speakers->attaching().filtered( et1() ).has_value(); }
   // What is known, as the ports of the speakers. The kernel itself may speak other protocols.
   std::vector< std::string > known() const {
      std::vector< std::string > ports;
      for ( auto const & speaker : speakers->table().known( et1() ) ) {
         if ( speaker.id.kind == EGRESS_LLDP ) {
            ports.push_back( speaker.latest().heard.speaker );
         }
      }
      return ports;
   }
   void hears( std::size_t count ) {
      ASSERT_TRUE( turnUntil( [ & ] { return known().size() == count; } ) ) << known().size();
   }
   std::string mute( std::vector< std::string > const & goodbyes,
                     std::chrono::milliseconds time = 1min ) {
      return speakers->mute( et1(), { goodbyes.begin(), goodbyes.end() }, time );
   }

   std::optional< TestNetNs > near;
   std::optional< TestNetNs > far;
   Conditions conditions{ []( auto, auto const & ) {} };
   std::vector< LinkPlace > changed;
   std::optional< Speakers > speakers;
};

TEST_F( SpeakersTest, WhatASpeakerSaysIsKnownUntilItLeaves ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   daemon.send( lldp( '1' ) );
   hears( 1 );
   EXPECT_THAT( known(), ElementsAre( HasSubstr( "p1" ) ) );
   EXPECT_THAT( changed, ElementsAre( et1() ) );
   daemon.send( lldp( '1' ) );
   daemon.send( lldp( '2' ) );
   hears( 2 );
   EXPECT_THAT( changed, ElementsAre( et1(), et1() ) ) << "the same again is no change";
   daemon.send( lldp( '1', 0 ) );
   hears( 1 );
   EXPECT_THAT( known(), ElementsAre( HasSubstr( "p2" ) ) );
}

TEST_F( SpeakersTest, ASpeakerIsForgottenInTimeBesideOneThatHoldsLonger ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   daemon.send( lldp( '1', 120 ) );
   hears( 1 );
   daemon.send( lldp( '2', 1 ) );
   hears( 2 );
   hears( 1 );
   EXPECT_THAT( known(), ElementsAre( HasSubstr( "p1" ) ) );
}

TEST_F( SpeakersTest, AMutedSpeakerIsSilentAndGreetsWithWhatItSaidLast ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   daemon.send( lldp( '1', 100 ) );
   daemon.send( lldp( '2' ) );
   hears( 2 );
   neighbor.heard();

   EXPECT_EQ( mute( { lldp( '1', 0 ) } ), "" );
   daemon.send( lldp( '1', 110 ) );
   daemon.send( lldp( '1', 120 ) );
   daemon.send( lldp( '2' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '2' ) ) );
   ASSERT_TRUE( turnUntil( [ & ] {
      return speakers->table().known( et1() ).front().latest().heard.says == "ttl 120";
   } ) );

   auto const muted = speakers->unmute( et1(), true );
   EXPECT_EQ( muted, ( std::vector< MutedSpeaker >{ { "lldp", known().front(), 2, true } } ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1', 120 ) ) );
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
   EXPECT_THAT( speakers->unmute( et1(), true ), IsEmpty() );
}

TEST_F( SpeakersTest, WithoutAnAbortNobodyIsGreeted ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   daemon.send( lldp( '1' ) );
   hears( 1 );
   neighbor.heard();
   mute( { lldp( '1', 0 ) } );
   EXPECT_FALSE( speakers->unmute( et1(), false ).at( 0 ).greeted );
   EXPECT_THAT( neighbor.heard(), IsEmpty() );
}

TEST_F( SpeakersTest, ASpeakerThatWasNeverHeardIsMutedButNotGreeted ) {
   attach();
   EXPECT_EQ( mute( { lldp( '1', 0 ), "a frame of no known protocol" } ), "" );
   EXPECT_FALSE( speakers->unmute( et1(), true ).at( 0 ).greeted );
}

TEST_F( SpeakersTest, OnlyTheSpeakersOfTheLastCallAreMuted ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ), lldp( '2', 0 ) } );
   mute( { lldp( '2', 0 ) } );
   daemon.send( lldp( '1' ) );
   daemon.send( lldp( '2' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, AMuteIsRenewedWhileValendLives ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ) }, 1100ms );
   daemon.send( lldp( '1' ) );
   settle( 1500ms );
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), IsEmpty() );
   EXPECT_EQ( speakers->unmute( et1(), false ).at( 0 ).heldBack, 2u )
      << "counted through the renewal";
}

TEST_F( SpeakersTest, AMuteEndsByItselfWhenTheLoopDoesNotTurn ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ) }, 50ms );
   std::this_thread::sleep_for( 60ms );
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, TheSpeakersAreHeardWhenValendEnds ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ) } );
   speakers.reset();
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, AfterARestartTheSpeakersAreMutedAsSoonAsTheirDeviceHasAFilter ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ) } );
   auto muted = speakers->muted( et1() );
   ASSERT_EQ( muted.size(), 1u );
   EXPECT_THAT( muted.front().name, HasSubstr( "p1" ) );
   muted.push_back( { "lldp", 0, "not hexadecimal", "of another version" } );
   begin();

   EXPECT_EQ( speakers->muteAgain( et1(), muted, 1min ), "its filter is not attached yet" );
   attach();
   daemon.send( lldp( '1' ) );
   daemon.send( lldp( '2' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '2' ) ) );
   hears( 2 );
   auto const again = speakers->unmute( et1(), true );
   ASSERT_EQ( again.size(), 1u );
   EXPECT_EQ( again.front().heldBack, 1u );
   EXPECT_THAT( again.front().name, HasSubstr( "p1" ) );
   EXPECT_TRUE( again.front().greeted ) << "with what it said while it was muted";
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, WhatEndsBeforeTheDeviceHasAFilterMutesNobody ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   mute( { lldp( '1', 0 ) } );
   auto const muted = speakers->muted( et1() );
   begin();
   speakers->muteAgain( et1(), muted, 1min );
   EXPECT_THAT( speakers->unmute( et1(), true ), IsEmpty() );
   attach();
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, NotMoreSpeakersAreRecordedThanTheJournalHasRoomFor ) {
   attach();
   std::vector< std::string > goodbyes;
   for ( int port = 'A'; port <= 'A' + static_cast< int >( SpeakerPort::mostIdentities ); ++port ) {
      goodbyes.push_back( lldp( port, 0 ) );
   }
   mute( goodbyes );
   EXPECT_EQ( speakers->muted( et1() ).size(), SpeakerPort::mostIdentities );
}

TEST_F( SpeakersTest, AnInterfaceThatIsRemovedLosesItsFilter ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far1" );
   daemon.send( lldp( '1' ) );
   hears( 1 );
   mute( { lldp( '1', 0 ) } );
   EXPECT_FALSE( speakers->attaching().dropOlder( 2 ) );
   EXPECT_FALSE( filtered() );
   EXPECT_THAT( known(), IsEmpty() );
   neighbor.heard();
   daemon.send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
   EXPECT_EQ( speakers->unmute( et1(), false ).size(), 1u ) << "for the record";
}

TEST_F( SpeakersTest, ADeviceThatIsRecreatedGetsAFilterAgain ) {
   attach();
   auto const before = near->index( "et1" );
   near->ip( "link del et1" );
   speakers->attaching().deviceSeen( et1(), LinkSeen::gone );
   ASSERT_TRUE( turnUntil( [ this ] { return !filtered(); } ) );
   near->veth( "et1", *far, "far1" );
   ASSERT_NE( near->index( "et1" ), before );
   speakers->attaching().deviceSeen( et1(), LinkSeen::up );
   ASSERT_TRUE( turnUntil( [ this ] { return filtered(); } ) );
   PacketSocket( *near, "et1" ).send( lldp( '1' ) );
   hears( 1 );
}

TEST_F( SpeakersTest, ADeviceThatWasGoneInBetweenGetsAFilterAgain ) {
   attach();
   changed.clear();
   speakers->attaching().deviceSeen( et1(), LinkSeen::gone );
   speakers->attaching().deviceSeen( et1(), LinkSeen::up );
   ASSERT_TRUE( turnUntil( [ this ] { return !changed.empty(); } ) )
      << "what was known is forgotten";
   ASSERT_TRUE( turnUntil( [ this ] { return filtered(); } ) );
   PacketSocket( *near, "et1" ).send( lldp( '1' ) );
   hears( 1 );
}

TEST_F( SpeakersTest, ADeviceThatMovesToAnotherNamespaceIsHeardThere ) {
   attach();
   TestNetNs const elsewhere;
   mute( { lldp( '1', 0 ) } );
   near->ip( "link set et1 netns " + elsewhere.text() );
   elsewhere.ip( "link set et1 up" );
   speakers->attaching().deviceSeen( et1(), LinkSeen::gone );
   ASSERT_TRUE( turnUntil( [ this ] { return !filtered(); } ) );
   settle();
   PacketSocket neighbor( *far, "far1" );
   PacketSocket( elsewhere, "et1" ).send( lldp( '1' ) );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, ANamespaceThatIsReplacedGetsFiltersAgain ) {
   attach();
   near->destroy();
   near->create();
   near->veth( "et1", *far, "far2" ); // far1 may still be there
   speakers->attaching().namespaceChanged( near->text() );
   EXPECT_FALSE( filtered() );
   ASSERT_TRUE( turnUntil( [ this ] { return filtered(); } ) );
   PacketSocket daemon( *near, "et1" );
   PacketSocket neighbor( *far, "far2" );
   daemon.send( lldp( '1' ) );
   hears( 1 );
   neighbor.heard();
   EXPECT_EQ( mute( { lldp( '1', 0 ) } ), "" );
   EXPECT_TRUE( speakers->unmute( et1(), true ).at( 0 ).greeted );
   EXPECT_THAT( neighbor.heard(), ElementsAre( lldp( '1' ) ) );
}

TEST_F( SpeakersTest, MulticastGroupsAreLeftAndJoinedAgain ) {
   attach();
   auto const protocols = [ this ] {
      std::vector< std::string > all;
      for ( auto const & speaker : speakers->table().known( et1() ) ) {
         all.emplace_back( Egress::protocolOf( speaker.id ) );
      }
      return all;
   };
   settle( 300ms );
   EXPECT_THAT( protocols(), IsEmpty() ) << "the groups of the link itself are never left";
   near->ip( "address add 192.0.2.1/24 dev et1" );
   near->ip( "address add 239.1.2.3/32 dev et1 autojoin" );
   ASSERT_TRUE(
      turnUntil( [ & ] { return protocols() == std::vector< std::string >{ "igmp" }; } ) );
   auto const heard = speakers->table().known( et1() ).front().latest().heard;
   EXPECT_EQ( mute( { heard.goodbye } ), "" );
   auto const muted = speakers->unmute( et1(), true );
   ASSERT_EQ( muted.size(), 1u );
   EXPECT_TRUE( muted.front().greeted );
   near->ip( "address del 239.1.2.3/32 dev et1 autojoin" );
   EXPECT_TRUE( turnUntil( [ & ] { return protocols().empty(); } ) );
}

TEST_F( SpeakersTest, ADeviceWithoutAFilterIsAConditionAndIsTriedAgain ) {
   near->destroy(); // its namespace cannot be entered
   U32 ifIndex = 7;
   Speakers wrong(
      loop_, Valen::Linux::NetNsDirectories(), [ & ]( auto const & ) { return ifIndex; },
      conditions );
   wrong.attaching().placeIs( et1(), 1 );
   ASSERT_TRUE( turnUntil( [ this ] { return conditions.isRaised( "mute" ); } ) );
   EXPECT_THAT( conditions.raised().front().text,
                HasSubstr( "the goodbyes of 1 interface will not last: " ) );
   EXPECT_THAT( wrong.mute( et1(), { std::string_view( "nothing that is known" ) }, 1s ), "" );
   auto const goodbye = lldp( '1', 0 );
   EXPECT_THAT( wrong.mute( et1(), { goodbye }, 1s ), HasSubstr( "does not exist" ) );
   EXPECT_THAT( wrong.unmute( et1(), true ), IsEmpty() );
   near->create();
   near->veth( "et1", *far, "far2" ); // far1 may still be there
   ifIndex = near->index( "et1" );
   wrong.attaching().deviceSeen( et1(), LinkSeen::up );
   ASSERT_TRUE( turnUntil( [ & ] { return !conditions.isRaised( "mute" ); } ) );
   EXPECT_TRUE( wrong.attaching().filtered( et1() ) );
}

// The kernel is about to report that it is gone.
TEST_F( SpeakersTest, ADeviceThatVanishesWhileItsFilterIsAttachedIsNoCondition ) {
   U32 ifIndex = 99999;
   std::size_t changes = 0;
   Conditions watched( [ & ]( auto, auto const & ) { ++changes; } );
   Speakers wrong(
      loop_, Valen::Linux::NetNsDirectories(), [ & ]( auto const & ) { return ifIndex; }, watched );
   wrong.attaching().placeIs( et1(), 1 );
   ASSERT_TRUE( turnUntil( [ & ] {
      return wrong.attaching().whyNot( et1() ).find( "No such device" ) != std::string::npos;
   } ) );
   EXPECT_FALSE( watched.isRaised( "mute" ) );
   ifIndex = near->index( "et1" );
   wrong.attaching().deviceSeen( et1(), LinkSeen::up );
   ASSERT_TRUE( turnUntil( [ & ] { return wrong.attaching().filtered( et1() ).has_value(); } ) );
   EXPECT_EQ( changes, 0u );
}

TEST_F( SpeakersTest, WhySpeakersCannotBeMutedIsKnownUntilTheFilterIsThere ) {
   EXPECT_EQ( speakers->attaching().whyNot( et1() ), "its filter is not attached yet" );
   attach();
   EXPECT_EQ( speakers->attaching().whyNot( et1() ), "" );
}

TEST_F( SpeakersTest, AFloodOfSpeakersRaisesACondition ) {
   attach();
   PacketSocket daemon( *near, "et1" );
   for ( int port = 'A'; port <= 'A' + static_cast< int >( SpeakerTable::mostOfAProtocol );
         ++port ) {
      daemon.send( lldp( port ) );
   }
   ASSERT_TRUE( turnUntil( [ this ] { return conditions.isRaised( "speakers" ); } ) );
}

} // namespace
} // namespace Valend
