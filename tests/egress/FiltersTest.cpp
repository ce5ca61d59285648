#include "egress/Filters.h"
#include "egress/Mutes.h"
#include "tests/egress/FilterFixture.h"

#include <thread>

namespace Egress {

namespace {

using namespace std::chrono_literals;
using namespace Test;
using Valen::Linux::NetNs;

class FiltersTest : public FilterFixture {
 protected:
   void SetUp() override {
      FilterFixture::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      near_.veth( "et1", far_, "far1" );
      attach();
   }

   void attach() {
      EXPECT_EQ( filters_->attach( number_, netNs(), near_.index( "et1" ) ), GetParam() );
   }
   NetNs netNs() const { return NetNsDirectories().open( near_.name() ); }
   Speaker speaker( std::string const & frame ) const {
      return speakerOf( frame, number_, near_.index( "et1" ) ).value();
   }
   void mute( std::string const & frame, std::chrono::milliseconds time = 1min ) {
      mutes_->mute( speaker( frame ), std::chrono::steady_clock::now() + time );
   }
};

TEST_P( FiltersTest, OnlyTheMutedSpeakerIsSilent ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   auto const data = Valen::Test::testFrame( "data" );

   mute( lldp( 1, 0 ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) ); // the daemon does not notice
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );
   EXPECT_TRUE( daemon.send( data ) );
   EXPECT_EQ( neighbor.heardUntil( data ), ( std::vector{ lldp( 2 ), data } ) );
}

TEST_P( FiltersTest, OwnFramesPass ) {
   PacketSocket valend( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );

   valend.markIs( EGRESS_OWN_MARK );

   EXPECT_TRUE( valend.send( lldp( 1, 0 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 0 ) ).size(), 1 );
}

TEST_P( FiltersTest, AnUnmutedSpeakerIsHeardAndItsFramesWereCounted ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 1, 12 ) ) );

   EXPECT_EQ( mutes_->unmute( speaker( lldp( 1 ) ) ), 2 );
   EXPECT_EQ( mutes_->unmute( speaker( lldp( 1 ) ) ), 0 );

   EXPECT_TRUE( daemon.send( lldp( 1, 13 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 13 ) ), std::vector{ lldp( 1, 13 ) } );
}

TEST_P( FiltersTest, AMuteOpensByItselfAtItsEnd ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   auto const end = std::chrono::steady_clock::now() + 300ms;
   mutes_->mute( speaker( lldp( 1 ) ), end );
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );

   std::this_thread::sleep_until( end );

   EXPECT_TRUE( daemon.send( lldp( 1, 12 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 12 ) ), std::vector{ lldp( 1, 12 ) } );
}

TEST_P( FiltersTest, ATaggedSpeakerIsAnother ) {
   near_.veth( "et2", far_, "far2" );
   Tagging const tagging( near_, "et2", 10 );
   auto const index = near_.index( "et2" );
   filters_->attach( number_, netNs(), index );
   PacketSocket untagged( near_, "et2" );
   PacketSocket tagged( near_, "et2" );
   tagged.markIs( Tagging::mark );
   PacketSocket neighbor( far_, "far2" );
   auto goodbye = lldp( 1, 0 );
   goodbye.insert( 12, bytes( { 0x81, 0, 0, 10 } ) );

   mutes_->mute( speakerOf( goodbye, number_, index ).value(),
                 std::chrono::steady_clock::now() + 1min );

   EXPECT_TRUE( tagged.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( tagged.send( lldp( 2, 12 ) ) );
   EXPECT_TRUE( untagged.send( lldp( 1, 13 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 13 ) ),
              ( std::vector{ lldp( 2, 12 ), lldp( 1, 13 ) } ) );
}

TEST_P( FiltersTest, AFilterThatIsDetachedDropsNothing ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );

   filters_->detach( number_, netNs(), near_.index( "et1" ) );
   filters_->detach( number_, netNs(), near_.index( "et1" ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );
   neighbor.heardUntil( lldp( 1 ) );
   attach();
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 2 ) ), std::vector{ lldp( 2 ) } );
}

TEST_P( FiltersTest, NamespacesAreToldApart ) {
   TestNetNs const other;
   TestNetNs const otherFar;
   // The same index as that of et1.
   auto const index = std::to_string( near_.index( "et1" ) );
   other.ip( "link add et1 index " + index + " type veth peer name far1 netns " + otherFar.text() );
   otherFar.ip( "link set far1 up" );
   other.ip( "link set et1 up" );
   filters_->attach( number_ + 1, NetNsDirectories().open( other.name() ), near_.index( "et1" ) );
   PacketSocket daemon( other, "et1" );
   PacketSocket neighbor( otherFar, "far1" );

   mute( lldp( 1 ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );
   neighbor.heardUntil( lldp( 1 ) );
}

TEST_P( FiltersTest, ADeviceThatDoesNotExistIsSaid ) {
   try {
      filters_->attach( number_, netNs(), 12345 );
      ADD_FAILURE() << "attached";
   } catch ( Quill::ErrnoException const & error ) {
      EXPECT_EQ( error.number(), ENODEV ) << error.text();
      EXPECT_NE( error.text().find( "the device with the index 12345" ), std::string::npos )
         << error.text();
   }
}

INSTANTIATE_TEST_SUITE_P( Hooks, FiltersTest, ::testing::Values( Hook::tcx, Hook::clsact ),
                          []( auto const & hook ) {
                             return hook.param == Hook::tcx ? "Tcx" : "Clsact";
                          } );

TEST( FiltersManyTest, FewDevicesHaveTheirFilterByTcx ) {
   if ( Valen::Test::inUserNamespace() ) {
      GTEST_SKIP() << Valen::Test::filtersNeedRoot;
   }
   TestNetNs const near;
   TestNetNs const far;
   for ( std::string const name : { "d1", "d2", "d3" } ) {
      near.veth( name, far, "far-" + name );
   }
   auto const netNs = NetNsDirectories().open( near.name() );
   Filters filters( Hook::tcx, 1 );
   EXPECT_EQ( filters.attach( 1, netNs, near.index( "d1" ) ), Hook::tcx );
   EXPECT_EQ( filters.attach( 1, netNs, near.index( "d2" ) ), Hook::clsact );
   filters.detach( 1, netNs, near.index( "d1" ) );
   EXPECT_EQ( filters.attach( 1, netNs, near.index( "d3" ) ), Hook::tcx );
   filters.forget( 1 );
   EXPECT_EQ( filters.attach( 2, netNs, near.index( "d1" ) ), Hook::tcx );
}

// Whatever hook it was attached by: which devices get theirs by tcx depends on their number and order.
TEST( FiltersLeftTest, WhatAPreviousProcessLeftIsReplaced ) {
   if ( Valen::Test::inUserNamespace() ) {
      GTEST_SKIP() << Valen::Test::filtersNeedRoot;
   }
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "far1" );
   auto const netNs = NetNsDirectories().open( near.name() );
   auto const index = near.index( "et1" );
   auto const inClsact = [ & ] {
      return std::system( ( "tc -n " + near.text() +
                            " filter show dev et1 egress | grep -c valen | grep -qx 1" )
                             .c_str() ) == 0;
   };
   for ( int i = 0; i < 2; ++i ) {
      Filters( Hook::clsact ).attach( 1, netNs, index );
      EXPECT_TRUE( inClsact() );
   }

   Filters filters( Hook::tcx );
   ASSERT_EQ( filters.attach( 1, netNs, index ), Hook::tcx );
   EXPECT_FALSE( inClsact() );
}

} // namespace

} // namespace Egress
