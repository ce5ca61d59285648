// The names of interfaces and namespaces, packets, and the contract of the raw transmit endpoint.
#include "platform/corvid/IntfId.h"
#include "platform/corvid/NamespaceName.h"
#include "platform/corvid/Pkt.h"
#include "platform/corvid/RawTxPam.h"
#include "platform/quill/Exception.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/RecordingRawTxPam.h"

#include <gmock/gmock.h>
#include <set>
#include <sstream>

namespace Corvid {
namespace {

using testing::ElementsAre;
using Valen::Test::RecordingRawTxPams;

class CorvidTest : public testing::Test, protected Valen::Test::LeakCheck {};

// --- Interface ids -------------------------------------------------------------------------------

TEST_F( CorvidTest, AnInterfaceIdIsTheTextThatItWasMadeFrom ) {
   for ( auto const * const text : { "Ethernet1", "Ethernet3/1", "Port-Channel10.7", " odd " } ) {
      IntfId const id( text );
      EXPECT_EQ( id.view(), text );
      EXPECT_EQ( id.stringValue(), Quill::String( text ) );
      std::ostringstream stream;
      stream << id;
      EXPECT_EQ( stream.str(), text );
   }
}

TEST_F( CorvidTest, InterfaceIdsOfOneTextAreOneHoweverTheyWereMade ) {
   std::string const text( "Ethernet1" );
   IntfId const id( text );
   EXPECT_EQ( id, IntfId( text.c_str() ) );
   EXPECT_EQ( id, IntfId( std::string_view( text ) ) );
   EXPECT_EQ( id, IntfId( Quill::String( text ) ) );
   EXPECT_EQ( id, IntfId( id.stringValue() ) );
   EXPECT_EQ( id.hash(), IntfId( text ).hash() );
   EXPECT_FALSE( id == IntfId( "Ethernet2" ) );
   EXPECT_FALSE( id == IntfId( "ethernet1" ) );
}

TEST_F( CorvidTest, InterfaceIdsAreSortedByTheirBytes ) {
   std::set< IntfId > const ids{ "Ethernet2", "Ethernet10", "Ethernet3/1", "", "Ethernet1" };
   std::vector< std::string > texts;
   for ( auto const & id : ids ) {
      texts.push_back( id.stdString() );
   }
   EXPECT_THAT( texts, ElementsAre( "", "Ethernet1", "Ethernet10", "Ethernet2", "Ethernet3/1" ) );
}

TEST_F( CorvidTest, InterfaceIdsOfASwitchHashApart ) {
   std::set< U64 > low;
   std::set< U64 > all;
   std::vector< IntfId > ids;
   for ( int slot = 1; slot <= 8; ++slot ) {
      for ( int port = 1; port <= 64; ++port ) {
         ids.emplace_back( "Ethernet" + std::to_string( slot ) + "/" + std::to_string( port ) );
         all.insert( ids.back().hash() );
         low.insert( ids.back().hash() % 1024 );
      }
   }
   EXPECT_EQ( all.size(), ids.size() );
   EXPECT_GT( low.size(), 350u ) << "512 random keys fill 403 of 1024 buckets";
}

TEST_F( CorvidTest, TheEmptyInterfaceIdIsTheDefault ) {
   EXPECT_EQ( IntfId(), IntfId( "" ) );
   EXPECT_TRUE( IntfId().empty() );
   EXPECT_EQ( IntfId().length(), 0u );
   EXPECT_EQ( IntfId().stringValue(), Quill::String() );
   EXPECT_TRUE( IntfId() < IntfId( "Ethernet1" ) );
}

// --- Namespace names -----------------------------------------------------------------------------

// The text of the range error that `make` throws.
template < class Make > std::string rangeError( Make const & make ) {
   try {
      make();
   } catch ( Quill::RangeException const & exception ) {
      return exception.text();
   }
   return "nothing was thrown";
}

TEST_F( CorvidTest, ANamespaceNameOf150BytesIsTheLongestHoweverItIsMade ) {
   char const * const refused = "NamespaceName::bytes > 150 not allowed";
   std::string const longest( 150, 'x' );
   std::string const tooLong( 151, 'x' );
   EXPECT_EQ( NamespaceName( longest ).length(), NamespaceName::maxLength );
   EXPECT_EQ( rangeError( [ & ] { NamespaceName const name( tooLong ); } ), refused );
   EXPECT_EQ( rangeError( [ & ] { NamespaceName const name( tooLong.c_str() ); } ), refused );
   EXPECT_EQ( rangeError( [ & ] { NamespaceName const n( std::string_view{ tooLong } ); } ),
              refused );
   EXPECT_EQ( rangeError( [ & ] { NamespaceName const n( Quill::String{ tooLong } ); } ), refused );
}

TEST_F( CorvidTest, ARejectedNameLeavesItsTargetUnchanged ) {
   NamespaceName name( "ns-red" );
   EXPECT_THROW( name = NamespaceName( std::string( 151, 'x' ) ), Quill::RangeException );
   EXPECT_EQ( name, NamespaceName( "ns-red" ) );
}

TEST_F( CorvidTest, TheDefaultNamespaceHasANameOfItsOwn ) {
   EXPECT_EQ( NamespaceName::defaultNamespace().view(), "default" );
   EXPECT_FALSE( NamespaceName::defaultNamespace() == NamespaceName() );
}

// --- Packets -------------------------------------------------------------------------------------

class PktTest : public CorvidTest {
 protected:
   Pkt::Manager manager;
   U64 const live = Pkt::quillAllocation.live;
};

TEST_F( PktTest, ANewPacketIsEmpty ) {
   auto const pkt = manager.newPkt();
   EXPECT_EQ( pkt->length(), 0u );
   EXPECT_TRUE( pkt->stringValue().empty() );
}

TEST_F( PktTest, APacketIsExactlyItsBytes ) {
   auto const pkt = manager.newPkt();
   std::string const bytes( "\xff\xff\0\x01 end\0", 9 );
   for ( bool const flag : { false, true } ) {
      pkt->stringValueIs( bytes, flag );
      EXPECT_EQ( pkt->length(), 9u );
      EXPECT_EQ( std::string( pkt->data(), pkt->length() ), bytes );
      EXPECT_EQ( pkt->stringValue().stdString(), bytes );
   }
   pkt->stringValueIs( "", false );
   EXPECT_EQ( pkt->length(), 0u );
}

TEST_F( PktTest, APacketSharesItsBytes ) {
   auto const pkt = manager.newPkt();
   Quill::String const bytes( std::string( 9216, 'j' ) ); // a jumbo frame
   pkt->stringValueIs( bytes, false );
   EXPECT_EQ( pkt->length(), 9216u );
   EXPECT_EQ( pkt->data(), bytes.view().data() );
}

TEST_F( PktTest, AFreePacketIsUsedAgainAndEmpty ) {
   auto const * const first = manager.newPkt().get();
   auto const total = Pkt::quillAllocation.total;
   for ( int i = 0; i < 100; ++i ) {
      auto const pkt = manager.newPkt();
      ASSERT_EQ( pkt.get(), first );
      ASSERT_EQ( pkt->length(), 0u );
      pkt->stringValueIs( "bytes", false );
   }
   EXPECT_EQ( Pkt::quillAllocation.total, total );
}

TEST_F( PktTest, APacketThatIsHeldIsNotUsedAgain ) {
   auto const held = manager.newPkt();
   held->stringValueIs( "mine", false );
   std::vector< Quill::Ptr< Pkt > > others;
   for ( int i = 0; i < 10; ++i ) {
      others.push_back( manager.newPkt() );
      others.back()->stringValueIs( "theirs", false );
   }
   EXPECT_EQ( std::set( others.begin(), others.end() ).size(), 10u );
   EXPECT_EQ( held->stringValue(), Quill::String( "mine" ) );
   EXPECT_EQ( Pkt::quillAllocation.live, live + 11 );
   // A packet that becomes free in the middle is found from any starting point.
   auto const * const freed = others[ 4 ].get();
   others[ 4 ] = nullptr;
   EXPECT_EQ( manager.newPkt().get(), freed );
   EXPECT_EQ( Pkt::quillAllocation.live, live + 11 );
}

TEST_F( PktTest, TrimmingFreesPacketsWithoutHandles ) {
   auto held = manager.newPkt();
   auto other = manager.newPkt();
   other = nullptr;
   manager.trim();
   EXPECT_EQ( Pkt::quillAllocation.live, live + 1 );
   EXPECT_NE( manager.newPkt(), held );
   held = nullptr;
   manager.trim();
   EXPECT_EQ( Pkt::quillAllocation.live, live );
   EXPECT_TRUE( manager.newPkt() );
   manager.trim();
}

TEST_F( PktTest, APacketOutlivesItsManager ) {
   Quill::Ptr< Pkt > pkt;
   {
      Pkt::Manager shortLived;
      pkt = shortLived.newPkt();
      pkt->stringValueIs( "bytes", false );
   }
   EXPECT_EQ( pkt->stringValue(), Quill::String( "bytes" ) );
}

TEST_F( PktTest, TheProcessHasOneManager ) {
   EXPECT_EQ( &globalPktManager(), &globalPktManager() );
   auto const * const pkt = globalPktManager().newPkt().get();
   EXPECT_EQ( globalPktManager().newPkt().get(), pkt );
}

// --- The endpoint and its provider ---------------------------------------------------------------

TEST_F( CorvidTest, AnEndpointComesFromTheProviderUnderItsName ) {
   RecordingRawTxPams provider;
   auto endpoint = RawTxPam::rawTxPamFactory( "RawTxPam" );
   EXPECT_EQ( endpoint->name(), Quill::String( "RawTxPam" ) );
   EXPECT_EQ( endpoint->netNs(), NamespaceName() );
   EXPECT_FALSE( endpoint->enabled() );
   EXPECT_NE( RawTxPam::rawTxPamFactory( "RawTxPam" ), endpoint );
   EXPECT_EQ( provider.live, 1u );
   endpoint = nullptr;
   EXPECT_EQ( provider.live, 0u );
}

TEST_F( CorvidTest, AnEndpointIsPlacedThenEnabled ) {
   RecordingRawTxPams provider;
   auto const endpoint = RawTxPam::rawTxPamFactory( "RawTxPam" );
   endpoint->netNsIs( "ns-red" );
   EXPECT_EQ( endpoint->netNs(), NamespaceName( "ns-red" ) );
   EXPECT_FALSE( endpoint->enabled() );
   endpoint->enabledIs( true );
   EXPECT_TRUE( endpoint->enabled() );
   endpoint->burstIs( 7, "et1" );
   auto const pkt = Quill::make< Pkt >();
   pkt->stringValueIs( "goodbye", false );
   EXPECT_TRUE( endpoint->send( *pkt, 7 ) );
   EXPECT_THAT( provider.packets,
                ElementsAre( RecordingRawTxPams::Packet{ "ns-red", 7, "goodbye" } ) );
   EXPECT_THAT( provider.bursts, ElementsAre( RecordingRawTxPams::Burst{ "ns-red", 7, "et1" } ) );
   endpoint->enabledIs( false );
   EXPECT_FALSE( endpoint->enabled() );
}

TEST_F( CorvidTest, TheLatestProviderServesUntilItIsTakenBack ) {
   RecordingRawTxPams outer;
   {
      RecordingRawTxPams inner;
      auto const endpoint = RawTxPam::rawTxPamFactory( "RawTxPam" );
      EXPECT_EQ( inner.live, 1u );
      EXPECT_EQ( outer.live, 0u );
   }
   auto const endpoint = RawTxPam::rawTxPamFactory( "RawTxPam" );
   EXPECT_EQ( outer.live, 1u );
   EXPECT_EQ( rawTxPamProviderIs( &outer ), &outer );
}

TEST_F( CorvidTest, WithoutAProviderThereAreNoEndpoints ) {
   auto * const old = rawTxPamProviderIs( nullptr );
   EXPECT_EQ( old, nullptr ) << "not removed by another test";
   EXPECT_DEATH( RawTxPam::rawTxPamFactory( "RawTxPam" ),
                 "assertion failed: nullptr != rawTxPamProvider at " );
}

} // namespace
} // namespace Corvid
