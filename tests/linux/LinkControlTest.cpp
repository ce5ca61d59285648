#include "linux/LinkControl.h"

#include "linux/Rtnetlink.h"
#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"

#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using Valen::Test::TestNetNs;

class LinkControlTest : public Valen::Test::NetworkTest {
 protected:
   // The text and number of the error when the device is set down.
   std::pair< std::string, int > errorOf( Corvid::NamespaceName const & netNs, U32 index,
                                          Quill::Name const & device ) {
      try {
         control_.stateIs( netNs, index, device, LinkState::down );
      } catch ( Quill::ErrnoException const & e ) {
         return { e.text(), e.number() };
      }
      return {};
   }
   static std::string object( TestNetNs const & netNs, std::string const & device, U32 index ) {
      return device + " (index " + std::to_string( index ) + ") in network namespace \"" +
             netNs.text() + "\"";
   }

   LinkControl control_;
};

TEST_F( LinkControlTest, SetsADeviceDownAndUp ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   auto const index = blue.index( "et1" );
   EXPECT_EQ( control_.state( blue.name(), index, "et1" ), LinkState::up );
   control_.stateIs( blue.name(), index, "et1", LinkState::down );
   EXPECT_EQ( control_.state( blue.name(), index, "et1" ), LinkState::down );
   control_.stateIs( blue.name(), index, "et1", LinkState::down ); // no effect
   EXPECT_EQ( control_.state( blue.name(), index, "et1" ), LinkState::down );
   control_.stateIs( blue.name(), index, "et1", LinkState::up );
   EXPECT_EQ( control_.state( blue.name(), index, "et1" ), LinkState::up );
}

TEST_F( LinkControlTest, UsesTheDeviceOfTheGivenNamespace ) {
   TestNetNs const blue;
   TestNetNs const red;
   for ( auto const * const netNs : { &blue, &red } ) {
      netNs->ip( "link add et1 index 71 type veth peer name et2" );
      netNs->ip( "link set et1 up" );
   }
   control_.stateIs( red.name(), 71, "et1", LinkState::down );
   EXPECT_EQ( control_.state( blue.name(), 71, "et1" ), LinkState::up );
   EXPECT_EQ( control_.state( red.name(), 71, "et1" ), LinkState::down );
}

TEST_F( LinkControlTest, OtherFlagsDoNotChange ) {
   TestNetNs const blue;
   blue.ip( "link add et1 index 71 type veth peer name et2" );
   blue.ip( "link set et1 up promisc on" );
   control_.stateIs( blue.name(), 71, "et1", LinkState::down );
   Valen::Test::run( "ip -n " + blue.text() + " link show et1 | grep -q PROMISC" );
}

TEST_F( LinkControlTest, AnIndexOfAnotherNameIsENODEVAndNotChanged ) {
   TestNetNs const blue;
   blue.ip( "link add eth9 index 71 type veth peer name et2" );
   blue.ip( "link set eth9 up" );
   auto const [ text, number ] = errorOf( blue.name(), 71, "et1" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, object( blue, "et1", 71 ) + " is now eth9" );
   EXPECT_EQ( control_.state( blue.name(), 71, "eth9" ), LinkState::up );
}

TEST_F( LinkControlTest, AMissingIndexIsENODEV ) {
   TestNetNs const blue;
   auto const [ text, number ] = errorOf( blue.name(), 71, "et1" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, "cannot query " + object( blue, "et1", 71 ) + ": No such device" );
}

TEST_F( LinkControlTest, IndexZeroIsENODEV ) {
   TestNetNs const blue;
   auto const [ text, number ] = errorOf( blue.name(), 0, "lo" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, "device lo has no index" );
}

TEST_F( LinkControlTest, AMissingNamespaceIsENOENT ) {
   EXPECT_EQ( errorOf( "vt-missing", 1, "lo" ).second, ENOENT );
}

TEST_F( LinkControlTest, WithoutTheCapabilityItIsEPERM ) {
   TestNetNs const blue;
   blue.ip( "link set lo up" );
   auto const attempt = [ & ] {
      Valen::Test::dropCapability( CAP_NET_ADMIN );
      auto const [ text, number ] = errorOf( blue.name(), 1, "lo" );
      std::fprintf( stderr, "[%s]", text.c_str() );
      ::_exit( number );
   };
   EXPECT_EXIT( attempt(), ::testing::ExitedWithCode( EPERM ),
                ::testing::HasSubstr( "[cannot set down " + object( blue, "lo", 1 ) +
                                      ": Operation not permitted]" ) );
}

// The kernel answers before the request returns, so even a timeout of zero is enough.
TEST_F( LinkControlTest, TheKernelAnswersAtOnce ) {
   TestNetNs const blue;
   LinkControl hasty( NetNsDirectories(), std::chrono::milliseconds( 0 ) );
   EXPECT_EQ( hasty.state( blue.name(), 1, "lo" ), LinkState::down );
}

} // namespace
} // namespace Valen::Linux
