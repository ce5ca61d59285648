// The daemon's view of the kernel, in namespaces of the test.
#include "valend/kernel/KernelLinks.h"

#include "tests/linux/TestNetwork.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace Valend {
namespace {

using ::testing::HasSubstr;
using Valen::Test::TestNetNs;

class KernelLinksTest : public Valen::Test::NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      red.emplace();
      far.emplace();
      red->veth( "et1", *far, "far1" );
   }
   // Watches `red`, and waits until et1 is reported.
   void watch() {
      links.netNssAre( { red->text() } );
      ASSERT_TRUE( turnUntil( [ this ] { return links.device( et1() ).has_value(); } ) );
   }
   LinkPlace et1() const { return { red->text(), "et1" }; }
   // The answer to a change.
   LinkAnswer change( LinkPlace const & place, LinkChange change ) {
      std::optional< LinkAnswer > answered;
      auto const request =
         links.request( place, change, {}, [ & ]( auto const & answer ) { answered = answer; } );
      EXPECT_FALSE( answered ) << "not before request() has returned";
      EXPECT_TRUE( turnUntil( [ & ] { return answered.has_value(); } ) );
      return *answered;
   }
   std::string mountPath() const {
      return Valen::Linux::KernelNetInfoProvider::path( red->name() );
   }

   std::optional< TestNetNs > red;
   std::optional< TestNetNs > far;
   Conditions conditions{ []( auto, auto const & ) {} };
   Valen::Linux::PacketEndpointProvider endpoints;
   KernelLinks links{ loop_, Valen::Linux::NetNsDirectories(), endpoints, conditions };
};

TEST_F( KernelLinksTest, ALinkIsSetDownAndUp ) {
   watch();
   EXPECT_EQ( links.device( et1() )->ifIndex, red->index( "et1" ) );
   EXPECT_EQ( links.device( et1() )->mtu, 1500u );
   EXPECT_TRUE( links.up( et1() ) );
   EXPECT_TRUE( change( et1(), LinkChange::down ).changed );
   EXPECT_FALSE( links.up( et1() ) );
   EXPECT_TRUE( turnUntil( [ this ] { return !links.device( et1() )->up; } ) );
   EXPECT_TRUE( change( et1(), LinkChange::up ).changed );
   EXPECT_TRUE( links.up( et1() ) );
}

TEST_F( KernelLinksTest, ADeviceThatDoesNotExistIsAnErrorThatNamesIt ) {
   watch();
   auto const answer = change( { red->text(), "et9" }, LinkChange::down );
   EXPECT_EQ( answer.why, "no device \"et9\" in namespace \"" + red->text() + "\"" );
   EXPECT_EQ( answer.error, ENODEV );
   EXPECT_TRUE( answer.missing() );
   EXPECT_THAT( change( { "elsewhere", "et1" }, LinkChange::down ).why,
                HasSubstr( ": the namespace is not watched" ) );
}

TEST_F( KernelLinksTest, ARequestThatIsDroppedIsNotAnswered ) {
   watch();
   bool answered = false;
   auto const note = [ & ]( auto const & ) { answered = true; };
   links.request( { red->text(), "et9" }, LinkChange::down, {}, note ).reset();
   auto const missing = links.request( { red->text(), "et9" }, LinkChange::down, {}, note );
   EXPECT_TRUE( missing->withdraw() );
   links.request( et1(), LinkChange::down, {}, note ).reset();
   settle();
   EXPECT_FALSE( answered );
}

TEST_F( KernelLinksTest, ALinkSetDownOutsideValendIsReported ) {
   std::vector< LinkSeen > seen;
   links.seenIs( [ & ]( LinkPlace const & place, LinkSeen now ) {
      if ( place == et1() ) {
         seen.push_back( now );
      }
   } );
   watch();
   red->ip( "link set et1 down" );
   EXPECT_TRUE( turnUntil( [ & ] {
      return seen == std::vector{ LinkSeen::up, LinkSeen::down };
   } ) );
}

TEST_F( KernelLinksTest, ANamespaceIsWatchedWhileTheDaemonOrTheLibraryNeedsIt ) {
   watch();
   EXPECT_TRUE( links.mount( mountPath() ) );
   links.netNssAre( {} );
   EXPECT_TRUE( links.device( et1() ) ) << "the library needs it";
   links.unmount( mountPath() );
   EXPECT_FALSE( links.device( et1() ) ) << "neither does";

   links.mount( mountPath() );
   links.netNssAre( { red->text() } );
   links.unmount( mountPath() );
   EXPECT_TRUE( turnUntil( [ this ] { return links.device( et1() ).has_value(); } ) )
      << "the daemon needs it";
}

TEST_F( KernelLinksTest, ANamespaceIsIdentifiedOrSaidToBeMissing ) {
   auto const before = links.look( red->text() );
   EXPECT_NE( before.identity, "" );
   EXPECT_NE( before.identity, links.look( "default" ).identity );
   red->destroy();
   auto const gone = links.look( red->text() );
   EXPECT_EQ( gone.identity, "" );
   EXPECT_TRUE( gone.missing );
   EXPECT_THAT( gone.error, HasSubstr( red->text() ) );
   red->create();
}

} // namespace
} // namespace Valend
