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
   // What setting a device down throws: text and number.
   std::pair< std::string, int > refusal( Corvid::NamespaceName const & netNs, U32 index,
                                          Quill::Name const & device ) {
      try {
         control_.upIs( netNs, index, device, false );
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

TEST_F( LinkControlTest, DeviceIsSetDownAndUp ) {
   TestNetNs const blue;
   TestNetNs const far;
   blue.veth( "et1", far, "peer1" );
   auto const index = blue.index( "et1" );
   EXPECT_TRUE( control_.up( blue.name(), index, "et1" ) );
   control_.upIs( blue.name(), index, "et1", false );
   EXPECT_FALSE( control_.up( blue.name(), index, "et1" ) );
   control_.upIs( blue.name(), index, "et1", false ); // so already
   EXPECT_FALSE( control_.up( blue.name(), index, "et1" ) );
   control_.upIs( blue.name(), index, "et1", true );
   EXPECT_TRUE( control_.up( blue.name(), index, "et1" ) );
}

TEST_F( LinkControlTest, TakesTheDeviceOfTheRightNamespace ) {
   TestNetNs const blue;
   TestNetNs const red;
   for ( auto const * const netNs : { &blue, &red } ) {
      netNs->ip( "link add et1 index 71 type veth peer name et2" );
      netNs->ip( "link set et1 up" );
   }
   control_.upIs( red.name(), 71, "et1", false );
   EXPECT_TRUE( control_.up( blue.name(), 71, "et1" ) );
   EXPECT_FALSE( control_.up( red.name(), 71, "et1" ) );
}

TEST_F( LinkControlTest, OtherFlagsStayAsTheyAre ) {
   TestNetNs const blue;
   blue.ip( "link add et1 index 71 type veth peer name et2" );
   blue.ip( "link set et1 up promisc on" );
   control_.upIs( blue.name(), 71, "et1", false );
   Valen::Test::run( "ip -n " + blue.text() + " link show et1 | grep -q PROMISC" );
}

TEST_F( LinkControlTest, IndexThatBearsAnotherNameIsENODEVAndLeftAlone ) {
   TestNetNs const blue;
   blue.ip( "link add eth9 index 71 type veth peer name et2" );
   blue.ip( "link set eth9 up" );
   auto const [ text, number ] = refusal( blue.name(), 71, "et1" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, object( blue, "et1", 71 ) + " is now eth9" );
   EXPECT_TRUE( control_.up( blue.name(), 71, "eth9" ) );
}

TEST_F( LinkControlTest, MissingIndexIsENODEV ) {
   TestNetNs const blue;
   auto const [ text, number ] = refusal( blue.name(), 71, "et1" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, "query of " + object( blue, "et1", 71 ) + ": No such device" );
}

TEST_F( LinkControlTest, IndexZeroIsENODEV ) {
   TestNetNs const blue;
   auto const [ text, number ] = refusal( blue.name(), 0, "lo" );
   EXPECT_EQ( number, ENODEV );
   EXPECT_EQ( text, "device lo has no index" );
}

TEST_F( LinkControlTest, MissingNamespaceIsENOENT ) {
   EXPECT_EQ( refusal( "vt-nobody", 1, "lo" ).second, ENOENT );
}

TEST_F( LinkControlTest, WithoutThePrivilegeItIsEPERM ) {
   TestNetNs const blue;
   blue.ip( "link set lo up" );
   auto const attempt = [ & ] {
      Valen::Test::dropCapability( CAP_NET_ADMIN );
      auto const [ text, number ] = refusal( blue.name(), 1, "lo" );
      std::fprintf( stderr, "[%s]", text.c_str() );
      ::_exit( number );
   };
   EXPECT_EXIT( attempt(), ::testing::ExitedWithCode( EPERM ),
                ::testing::HasSubstr( "[setting down " + object( blue, "lo", 1 ) +
                                      ": Operation not permitted]" ) );
}

// The kernel answers within the request, so that no patience at all is enough.
TEST_F( LinkControlTest, AnswerIsThereAtOnce ) {
   TestNetNs const blue;
   LinkControl hasty( NetNsFolders(), std::chrono::milliseconds( 0 ) );
   EXPECT_FALSE( hasty.up( blue.name(), 1, "lo" ) );
}

} // namespace
} // namespace Valen::Linux
