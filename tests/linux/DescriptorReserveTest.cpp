#include "linux/DescriptorReserve.h"

#include "linux/NetNs.h"
#include "linux/RtnetlinkSocket.h"
#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"

#include <fcntl.h>

namespace Valen::Linux {
namespace {

using Valen::Test::DescriptorLimit;
using Valen::Test::limitLeaving;
using Valen::Test::TestNetNs;

int openNull() {
   return ::open( "/dev/null", O_RDONLY | O_CLOEXEC );
}

TEST( DescriptorReserveTest, GivesUpOneWhenNoOtherIsLeft ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 2 );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   ASSERT_LT( openNull(), 0 );
   auto const first = reserve.open( openNull );
   EXPECT_TRUE( first );
   EXPECT_EQ( reserve.held(), 1u );
   auto const second = reserve.open( openNull );
   EXPECT_TRUE( second );
   auto const third = reserve.open( openNull );
   EXPECT_FALSE( third );
   EXPECT_EQ( errno, EMFILE );
}

TEST( DescriptorReserveTest, GivesNoneUpWhileOthersAreLeftOrForAnotherError ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 2 );
   EXPECT_TRUE( reserve.open( openNull ) );
   EXPECT_EQ( reserve.held(), 2u );
   DescriptorLimit const limit( limitLeaving( 1 ) );
   EXPECT_TRUE( reserve.open( openNull ) );
   EXPECT_FALSE( reserve.open( [] {
      errno = ENOENT;
      return -1;
   } ) );
   EXPECT_EQ( errno, ENOENT );
   EXPECT_EQ( reserve.held(), 2u );
}

TEST( DescriptorReserveTest, IsFilledAgainBeforeOthersGetWhatWasReturned ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 1 );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   {
      auto const used = reserve.open( openNull );
      EXPECT_EQ( reserve.held(), 0u );
      EXPECT_FALSE( reserve.hasRoom() );
   }
   EXPECT_FALSE( reserve.hasRoom() );
   EXPECT_EQ( reserve.held(), 1u );
   EXPECT_LT( openNull(), 0 );
}

TEST( DescriptorReserveTest, IsFilledAgainAtItsNextUse ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 2 );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   EXPECT_TRUE( reserve.open( openNull ) ); // and closed
   EXPECT_EQ( reserve.held(), 1u );
   EXPECT_FALSE( reserve.open( [] {
      errno = ENOENT;
      return -1;
   } ) );
   EXPECT_EQ( reserve.held(), 2u );
}

TEST( DescriptorReserveTest, HasRoomWhileEnoughAreLeftBesides ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 1 );
   auto const free = static_cast< int >( DescriptorReserve::keptForWork );
   {
      DescriptorLimit const limit( limitLeaving( free ) );
      EXPECT_TRUE( reserve.hasRoom() );
      EXPECT_TRUE( Fd( openNull() ) ) << "they were only looked at";
   }
   DescriptorLimit const limit( limitLeaving( free - 1 ) );
   EXPECT_FALSE( reserve.hasRoom() );
   EXPECT_EQ( reserve.held(), 1u );
}

TEST( DescriptorReserveTest, ASmallerSizeReturnsTheRest ) {
   DescriptorReserve reserve;
   reserve.sizeIs( 3 );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   EXPECT_LT( openNull(), 0 );
   reserve.sizeIs( 2 );
   EXPECT_TRUE( Fd( openNull() ) );
   EXPECT_EQ( reserve.held(), 2u );
}

// The reserve of the process: it is empty for all other tests.
class ProcessReserveTest : public Valen::Test::NetworkTest {
 protected:
   ~ProcessReserveTest() override { DescriptorReserve::ofProcess().sizeIs( 0 ); }
};

TEST_F( ProcessReserveTest, ANamespaceAndARequestSocketAreOpenedWithoutADescriptorLeft ) {
   TestNetNs const netNs;
   DescriptorReserve::ofProcess().sizeIs( DescriptorReserve::usualSize );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   for ( int i = 0; i < 20; ++i ) {
      RtnetlinkSocket const socket( NetNsDirectories().open( netNs.name() ), std::nullopt );
      EXPECT_GE( socket.fd(), 0 );
   }
}

TEST_F( ProcessReserveTest, WhatStaysOpenDoesNotUseItUp ) {
   TestNetNs const netNs;
   DescriptorReserve::ofProcess().sizeIs( DescriptorReserve::usualSize );
   DescriptorLimit const limit( limitLeaving( 0 ) );
   try {
      RtnetlinkSocket const subscribed( NetNsDirectories().open( netNs.name() ), 1 << 16 );
      ADD_FAILURE() << "opened";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.number(), EMFILE );
   }
}

} // namespace
} // namespace Valen::Linux
