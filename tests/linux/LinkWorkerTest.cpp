#include "linux/LinkWorker.h"

#include "tests/linux/BusyKernel.h"
#include "tests/linux/Links.h"
#include "tests/linux/Privileges.h"

#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class LinkWorkerTest : public Valen::Test::LinksTest {
 protected:
   void SetUp() override {
      LinksTest::SetUp();
      if ( !IsSkipped() ) {
         worker_.emplace( loop_ );
      }
   }
   // Requests a change; its answer is added to `answers`: "et1 down changed".
   LinkWorker::Id request( std::string const & device, LinkState state,
                           Gantry::Time deadline = {} ) {
      return request( id( device ), state, deadline );
   }
   LinkWorker::Id request( LinkId const & link, LinkState state, Gantry::Time deadline = {} ) {
      return worker_->request( link, state, deadline, [ this, link, state ]( auto const & answer ) {
         last = answer;
         answers.push_back( link.device + ( state == LinkState::up ? " up" : " down" ) +
                            ( answer.error     ? " error " + std::to_string( answer.error )
                              : answer.changed ? " changed"
                                               : "" ) );
      } );
   }
   bool answered( std::size_t count ) {
      return turnUntil( [ & ] { return answers.size() >= count; }, 60s );
   }
   bool up( std::string const & device ) const {
      return LinkControl().state( blue_->name(), blue_->index( device ), Quill::Name( device ) ) ==
             LinkState::up;
   }

   std::optional< LinkWorker > worker_;
   std::vector< std::string > answers;
   LinkWorker::Answer last;
};

TEST_F( LinkWorkerTest, LinksAreSetDownAndUp ) {
   request( "et1", LinkState::down );
   EXPECT_THAT( answers, IsEmpty() );
   ASSERT_TRUE( answered( 1 ) );
   EXPECT_FALSE( up( "et1" ) );
   request( "et1", LinkState::down );
   ASSERT_TRUE( answered( 2 ) );
   request( "et1", LinkState::up );
   ASSERT_TRUE( answered( 3 ) );
   EXPECT_TRUE( up( "et1" ) );
   EXPECT_THAT( answers, ElementsAre( "et1 down changed", "et1 down", "et1 up changed" ) );
   EXPECT_TRUE( up( "et2" ) );
}

TEST_F( LinkWorkerTest, AnIndexOfAnotherNameIsAnErrorAndNotChanged ) {
   auto wrong = id( "et1" );
   wrong.ifIndex = blue_->index( "et2" );
   request( wrong, LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   EXPECT_EQ( last.error, ENODEV );
   EXPECT_THAT( last.why, HasSubstr( " is now et2" ) );
   EXPECT_TRUE( up( "et2" ) );
}

TEST_F( LinkWorkerTest, AMissingNamespaceIsAnErrorUntilItIsThere ) {
   auto const index = blue_->index( "et1" );
   LinkId const link{ blue_->text(), "et1", index };
   blue_->destroy();
   request( link, LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   EXPECT_EQ( last.error, ENOENT );
   blue_->create();
   blue_->ip( "link add et1 index " + std::to_string( index ) +
              " type veth peer name et2 index 99" );
   blue_->ip( "link set et1 up" );
   request( link, LinkState::down );
   ASSERT_TRUE( answered( 2 ) );
   EXPECT_FALSE( up( "et1" ) );
}

// The socket of the old one is still open.
TEST_F( LinkWorkerTest, ANamespaceThatWasReplacedUnderItsNameIsAnother ) {
   worker_->netNssAre( { blue_->text() } );
   auto const index = blue_->index( "et1" );
   request( "et1", LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   blue_->destroy();
   blue_->create();
   blue_->ip( "link add et1 index " + std::to_string( index ) +
              " type veth peer name et2 index 99" );
   blue_->ip( "link set et1 up" );
   request( "et1", LinkState::down );
   ASSERT_TRUE( answered( 2 ) );
   EXPECT_EQ( answers.back(), "et1 down changed" );
   EXPECT_FALSE( up( "et1" ) );
}

// An open socket keeps a namespace alive, and with it the other ends of its devices.
TEST_F( LinkWorkerTest, ADeletedNamespaceIsNotKeptAlive ) {
   worker_->netNssAre( { blue_->text() } );
   request( "et1", LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   blue_->destroy();
   worker_->refresh( blue_->text() );
   EXPECT_TRUE( turnUntil( [ this ] { return far_->index( "far-et1" ) == 0; } ) );
}

TEST_F( LinkWorkerTest, ANamespaceThatIsNotNeededIsNotKeptAlive ) {
   request( "et1", LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   blue_->destroy();
   EXPECT_TRUE( turnUntil( [ this ] { return far_->index( "far-et1" ) == 0; } ) );
}

// It is opened when the namespace is configured, and used as long as the namespace is the same.
TEST_F( LinkWorkerTest, NoDescriptorIsNeededToSetALinkDown ) {
   worker_->netNssAre( { blue_->text() } );
   // Elsewhere, after the sockets were opened.
   request( LinkId{ far_->text(), "far-et1", far_->index( "far-et1" ) }, LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   auto const link = id( "et2" );
   {
      Valen::Test::DescriptorLimit const limit( 3 );
      request( link, LinkState::down );
      ASSERT_TRUE( answered( 2 ) );
   }
   EXPECT_EQ( answers.back(), "et2 down changed" );
   EXPECT_FALSE( up( "et2" ) );
}

// What the kernel does for another namespace, and for as long.
class BusyKernelTest : public LinkWorkerTest {
 protected:
   void SetUp() override {
      LinkWorkerTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      worker_->netNssAre( { blue_->text() } );
      et_ = { id( "et1" ), id( "et2" ), id( "et3" ) };
      kernel_.emplace();
      kernel_->beBusy();
      first_ = request( et_[ 0 ], LinkState::down );
      ASSERT_TRUE( turnUntil( [ this ] { return worker_->begun( first_ ); } ) );
   }

   std::vector< LinkId > et_;
   std::optional< Valen::Test::BusyKernel > kernel_;
   LinkWorker::Id first_ = 0;
};

TEST_F( BusyKernelTest, TheLoopGoesOnAndTheEarliestDeadlineComesFirst ) {
   request( et_[ 1 ], LinkState::down, 20ms );
   request( et_[ 2 ], LinkState::down, 10ms );
   auto const netNs = NetNsDirectories().open( blue_->name() );
   RtnetlinkSocket const socket( netNs, std::nullopt );
   EXPECT_EQ( linkState( socket.fd(), et_[ 1 ] ), LinkState::up ) << "asking does not wait";
   loop_.turn( 0ms );
   EXPECT_TRUE( kernel_->busy() ) << "all of this took longer than what keeps the kernel busy";
   EXPECT_THAT( answers, IsEmpty() );
   ASSERT_TRUE( answered( 3 ) );
   EXPECT_THAT( answers,
                ElementsAre( "et1 down changed", "et3 down changed", "et2 down changed" ) );
}

// Here, every change takes long.
TEST_F( LinkWorkerTest, TheEarliestAndTheLatestDeadlineComeInTurnWhileChangesTakeLong ) {
   worker_.emplace( loop_, NetNsDirectories(), 0ns );
   Valen::Test::BusyKernel kernel;
   auto const et1 = id( "et1" );
   auto const et2 = id( "et2" );
   auto const et3 = id( "et3" );
   kernel.beBusy();
   auto const first = request( et1, LinkState::down );
   ASSERT_TRUE( turnUntil( [ & ] { return worker_->begun( first ); } ) );
   request( et2, LinkState::down, 10ms );
   request( et3, LinkState::down, 20ms );
   request( et2, LinkState::up, 30ms );
   request( et3, LinkState::up, 40ms );
   EXPECT_TRUE( kernel.busy() );
   ASSERT_TRUE( answered( 5 ) );
   EXPECT_THAT( answers, ElementsAre( "et1 down changed", "et2 down changed", "et3 up",
                                      "et3 down changed", "et2 up changed" ) );
}

// The kernel is asked for several changes at once, but not for two of one link: each finds what the one before it made.
TEST_F( LinkWorkerTest, ManyChangesThatTakeLittleTimeAreMadeInTheirOrder ) {
   worker_.emplace( loop_, NetNsDirectories(), 1h );
   Valen::Test::BusyKernel kernel;
   auto const et1 = id( "et1" );
   auto const et2 = id( "et2" );
   kernel.beBusy();
   auto const first = request( et1, LinkState::down );
   ASSERT_TRUE( turnUntil( [ & ] { return worker_->begun( first ); } ) );
   std::vector< std::string > expected{ "et1 down changed" };
   for ( int i = 0; i < 10; ++i ) {
      for ( auto const state : { LinkState::down, LinkState::up } ) {
         request( et2, state );
         request( et1, state );
         std::string const what = state == LinkState::up ? " up changed" : " down changed";
         expected.push_back( "et2" + what );
         expected.push_back( i == 0 && state == LinkState::down ? "et1 down" : "et1" + what );
      }
   }
   EXPECT_TRUE( kernel.busy() );
   ASSERT_TRUE( answered( expected.size() ) );
   EXPECT_EQ( answers, expected );
}

TEST_F( BusyKernelTest, AChangeCanBeWithdrawnUntilItHasBegunAndItsAnswerForgottenAfterThat ) {
   auto const second = request( et_[ 1 ], LinkState::down );
   EXPECT_FALSE( worker_->begun( second ) );
   EXPECT_TRUE( worker_->withdraw( second ) );
   EXPECT_FALSE( worker_->withdraw( first_ ) );
   worker_->forget( request( et_[ 1 ], LinkState::down ) ); // has not begun: is dropped, too
   EXPECT_TRUE( kernel_->busy() );
   worker_->forget( first_ );
   request( et_[ 2 ], LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   EXPECT_THAT( answers, ElementsAre( "et3 down changed" ) );
   EXPECT_FALSE( up( "et1" ) );
   EXPECT_TRUE( up( "et2" ) );
}

TEST_F( BusyKernelTest, WhenItStopsOnlyWhatHasBegunIsDone ) {
   auto const second = request( et_[ 1 ], LinkState::down );
   worker_->stop();
   EXPECT_TRUE( worker_->begun( first_ ) );
   EXPECT_FALSE( worker_->begun( second ) );
   request( et_[ 2 ], LinkState::down );
   worker_.reset();
   EXPECT_FALSE( up( "et1" ) );
   EXPECT_TRUE( up( "et2" ) );
   EXPECT_TRUE( up( "et3" ) );
   EXPECT_THAT( answers, IsEmpty() );
}

TEST_F( BusyKernelTest, AfterAStopNothingElseIsBegun ) {
   request( et_[ 1 ], LinkState::down );
   worker_->stop();
   request( et_[ 2 ], LinkState::down );
   ASSERT_TRUE( answered( 1 ) );
   settle();
   worker_.reset();
   EXPECT_THAT( answers, ElementsAre( "et1 down changed" ) );
   EXPECT_TRUE( up( "et2" ) );
   EXPECT_TRUE( up( "et3" ) );
}

} // namespace
} // namespace Valen::Linux
