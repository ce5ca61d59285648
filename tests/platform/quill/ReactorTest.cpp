// Reactors: the protocol of their life, their watches, the switches of delivery, and removal while
// a handler runs.
#include "tests/platform/quill/ReactorModel.h"

#include <memory>
#include <stdexcept>

namespace {

using Quill::make;
using Quill::On;
using Quill::Ptr;
using Quill::Reactor;
using Valen::Test::Box;
using Valen::Test::Porter;
using Valen::Test::Shelf;
using Valen::Test::Story;

using ReactorTest = Valen::Test::PorterTest;

TEST_F( ReactorTest, HandlerOfTheChangedAttributeIsCalledWithItsKey ) {
   add( 'a' );
   shelf_->widthIs( 3 );
   shelf_->tagIs( "red" );
   shelf_->messageEnq( "text" );
   box_->neighborIs( make< Box >( "other" ) );
   EXPECT_EQ( story_.told(), "a width 3, a tag red, a message 0, a neighbor" );
}

TEST_F( ReactorTest, AttributeWithoutAHandlerCallsNone ) {
   add( 'a' );
   shelf_->labelIs( "label" );
   shelf_->fullIs( true );
   EXPECT_EQ( story_.told(), "" );
}

TEST_F( ReactorTest, ChangeWithoutAKeyDoesNotCallTheHandlerOfACollection ) {
   add( 'a' );
   shelf_->messageEnq( "text" );
   story_.told();
   shelf_->messageDelAll();
   EXPECT_EQ( story_.told(), "" );
}

TEST_F( ReactorTest, WhatIsThereIsReplayedWhenItIsMade ) {
   shelf_->tagIs( "red" );
   shelf_->tagIs( "blue" );
   auto const & porter = add( 'a' );
   EXPECT_TRUE( porter.initialized() );
   EXPECT_EQ( story_.told(), "a tag red, a tag blue" );
}

TEST_F( ReactorTest, WatchGivesAndKeepsWhatItWatches ) {
   auto & porter = add( 'a' );
   EXPECT_EQ( porter.shelfWatch().get(), shelf_.get() );
   EXPECT_EQ( porter.shelfWatch().handle(), shelf_ );
   EXPECT_EQ( shelf_->refs(), 2 );
   retire( 'a' );
   EXPECT_EQ( shelf_->refs(), 1 );
}

TEST_F( ReactorTest, WatchMayBeginWithNothingAndMove ) {
   auto const porter = make< Porter >( 'a', story_, shelf_, nullptr );
   EXPECT_EQ( porter->boxWatch().get(), nullptr );
   box_->neighborIs( box_ );
   EXPECT_EQ( story_.told(), "" );
   porter->boxWatch().notifierIs( box_ );
   box_->neighborIs( nullptr );
   EXPECT_EQ( story_.told(), "a neighbor" );
   porter->boxWatch().notifierIs( nullptr );
   box_->neighborIs( box_ );
   box_->neighborIs( nullptr );
   EXPECT_EQ( story_.told(), "" );
}

TEST_F( ReactorTest, SwitchedOffReactorIsNotNotifiedByAnyWatchUntilItIsOnAgain ) {
   auto & porter = add( 'a' );
   EXPECT_TRUE( porter.hasNotificationActive() );
   porter.hasNotificationActiveIs( false );
   EXPECT_FALSE( porter.hasNotificationActive() );
   EXPECT_FALSE( porter.shelfWatch().hasNotificationActive() );
   EXPECT_TRUE( shelf_->hasNotifiees() ) << "it stays registered";
   shelf_->widthIs( 1 );
   box_->neighborIs( box_ );
   EXPECT_EQ( story_.told(), "" );
   porter.hasNotificationActiveIs( true );
   box_->neighborIs( nullptr );
   EXPECT_EQ( widthIs( 2 ), "a neighbor, a width 2" );
}

TEST_F( ReactorTest, SwitchThatDoesNotChangeLeavesEachWatchAsItIs ) {
   auto & porter = add( 'a' );
   porter.boxWatch().hasNotificationActiveIs( false );
   porter.hasNotificationActiveIs( true );
   EXPECT_FALSE( porter.boxWatch().hasNotificationActive() );
}

TEST_F( ReactorTest, ReactorSwitchedOffInADeliveryBeforeItsTurnIsNotNotified ) {
   auto & a = add( 'a' );
   auto & b = add( 'b' );
   a.onNext = [ & ] { b.hasNotificationActiveIs( false ); };
   EXPECT_EQ( widthIs( 1 ), "a width 1" );
   b.hasNotificationActiveIs( true );
   a.onNext = [ & ] {
      b.hasNotificationActiveIs( false );
      b.hasNotificationActiveIs( true );
   };
   EXPECT_EQ( widthIs( 2 ), "a width 2, b width 2" );
}

TEST_F( ReactorTest, ReactorMaySwitchItselfOff ) {
   auto & a = add( 'a' );
   add( 'b' );
   a.onNext = [ & ] { a.hasNotificationActiveIs( false ); };
   EXPECT_EQ( widthIs( 1 ), "a width 1, b width 1" );
   EXPECT_EQ( widthIs( 2 ), "b width 2" );
}

TEST_F( ReactorTest, ZombieStaysSilentInEitherPositionOfTheSwitch ) {
   auto & porter = add( 'a' );
   porter.quillDoZombieReactors( true );
   porter.quillDoZombieReactors( true );
   EXPECT_TRUE( porter.shelfWatch().isZombie() );
   porter.hasNotificationActiveIs( false );
   porter.hasNotificationActiveIs( true );
   EXPECT_TRUE( porter.shelfWatch().hasNotificationActive() );
   EXPECT_EQ( widthIs( 1 ), "" );
   porter.quillDoZombieReactors( false );
   EXPECT_FALSE( porter.boxWatch().isZombie() );
   EXPECT_EQ( widthIs( 2 ), "a width 2" );
}

// A watch that a reactor makes later takes over the reactor's state.
TEST_F( ReactorTest, LaterWatchIsAsSilentAsItsReactor ) {
   using BoxWatch = Quill::Watch< Porter, Box, On< Box::neighborAttr, &Porter::handleNeighbor > >;
   auto & porter = add( 'a' );
   porter.hasNotificationActiveIs( false );
   EXPECT_FALSE( BoxWatch( porter, box_ ).hasNotificationActive() );
   EXPECT_FALSE( BoxWatch( porter, box_ ).isZombie() );
   porter.hasNotificationActiveIs( true );
   porter.quillDoZombieReactors( true );
   EXPECT_TRUE( BoxWatch( porter, box_ ).hasNotificationActive() );
   EXPECT_TRUE( BoxWatch( porter, box_ ).isZombie() );
}

// A reactor may destroy its watches in any order.
TEST_F( ReactorTest, WatchThatEndsLeavesTheOthersSwitchable ) {
   using BoxWatch =
      Quill::Watch< Porter, Box, Quill::On< Box::neighborAttr, &Porter::handleNeighbor > >;
   auto & porter = add( 'a' );
   auto first = std::make_unique< BoxWatch >( porter, box_ );
   auto second = std::make_unique< BoxWatch >( porter, box_ );
   auto third = std::make_unique< BoxWatch >( porter, box_ );
   second.reset();
   porter.hasNotificationActiveIs( false );
   EXPECT_FALSE( first->hasNotificationActive() );
   EXPECT_FALSE( third->hasNotificationActive() );
   EXPECT_FALSE( porter.shelfWatch().hasNotificationActive() );
   third.reset();
   first.reset();
   porter.quillDoZombieReactors( true );
   EXPECT_TRUE( porter.boxWatch().isZombie() );
}

TEST_F( ReactorTest, RetiredReactorIsDestroyedAtOnceOutsideItsHandlers ) {
   add( 'a' );
   retire( 'a' );
   EXPECT_EQ( story_.told(), "-a" );
   Reactor::retire( nullptr ); // no child: no effect
}

TEST_F( ReactorTest, ReactorRetiredInItsHandlerIsSilencedAtOnceAndDestroyedWhenItReturns ) {
   auto & a = add( 'a' );
   add( 'b' );
   a.onNext = [ & ] {
      retire( 'a' );
      EXPECT_EQ( porters_.count(), 1 ) << "its owner has removed it";
      EXPECT_TRUE( a.shelfWatch().isZombie() );
      box_->neighborIs( box_ ); // notifies b only
      box_->neighborIs( nullptr );
      story_.add( "handler ends" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, b neighbor, b neighbor, handler ends, -a, b width 1" );
   EXPECT_EQ( widthIs( 2 ), "b width 2" );
}

TEST_F( ReactorTest, ReactorRetiredInANestedHandlerOutlivesItsOutermostOne ) {
   auto & a = add( 'a' );
   a.onNext = [ & ] {
      a.onNext = [ & ] {
         a.onNext = [ & ] { retire( 'a' ); };
         shelf_->tagIs( "red" );
         story_.add( "middle ends" );
      };
      shelf_->widthIs( 2 );
      story_.add( "outer ends" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, a width 2, a tag red, middle ends, outer ends, -a" );
}

TEST_F( ReactorTest, ReactorRetiredByAnotherWhileItsHandlerWaitsIsDestroyedWhenItReturns ) {
   auto & a = add( 'a' );
   auto & b = add( 'b' );
   a.onNext = [ & ] {
      b.onNext = [ & ] { retire( 'a' ); };
      shelf_->tagIs( "red" );
      story_.add( "a's handler ends" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, a tag red, b tag red, a's handler ends, -a, b width 1" );
}

TEST_F( ReactorTest, ReplacementMadeInTheHandlerOfTheRetiredOneTakesOver ) {
   auto & a = add( 'a' );
   a.onNext = [ & ] {
      retire( 'a' );
      add( 'a' );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, -a" ) << "it is notified of later changes only";
   EXPECT_EQ( widthIs( 2 ), "a width 2" );
}

TEST_F( ReactorTest, HandlerMayLetTheWholeOwnerGo ) {
   auto & a = add( 'a' );
   add( 'b' );
   add( 'c' );
   a.onNext = [ & ] {
      for ( auto const & porter : porters_ ) {
         retire( porter->name() );
      }
      story_.add( "handler ends" );
   };
   EXPECT_EQ( widthIs( 1 ), "a width 1, -b, -c, handler ends, -a" );
   EXPECT_FALSE( shelf_->hasNotifiees() );
}

// Each of one to four reactors retires each of them, itself included.
TEST_F( ReactorTest, RetiringAnyReactorFromAnyHandlerStillNotifiesTheOthers ) {
   for ( std::size_t count = 1; count <= 4; ++count ) {
      std::string const all = std::string( "abcd" ).substr( 0, count );
      for ( char const actor : all ) {
         for ( char const target : all ) {
            std::string expected;
            for ( char const name : all ) {
               if ( name != target || name <= actor ) {
                  expected +=
                     ( expected.empty() ? "" : ", " ) + ( name + std::string( " width 1" ) );
               }
               if ( name == actor ) {
                  expected += std::string( ", -" ) + target;
               }
            }
            for ( char const name : all ) {
               add( name );
            }
            porters_.find( actor )->onNext = [ & ] { retire( target ); };
            EXPECT_EQ( widthIs( 1 ), expected );
            porters_.clear();
            EXPECT_FALSE( shelf_->hasNotifiees() );
            shelf_->widthIs( 0 );
            story_.told();
         }
      }
   }
}

TEST_F( ReactorTest, ScopeAroundACallKeepsARetiredReactor ) {
   auto & a = add( 'a' );
   {
      Reactor::HandlerScope const scope( a );
      retire( 'a' );
      EXPECT_EQ( widthIs( 1 ), "" );
   }
   EXPECT_EQ( story_.told(), "-a" );
}

TEST_F( ReactorTest, ReactorWithAnotherHandleOutlivesItsRetirement ) {
   add( 'a' );
   auto const held = porters_.find( 'a' );
   retire( 'a' );
   EXPECT_EQ( story_.told(), "" );
   EXPECT_EQ( held->refs(), 1 );
}

// A reactor that writes to what it watches in its constructor.
class Starter final : public Reactor {
   QUILL_TRACKED( Starter )
 public:
   Starter( Story & story, Ptr< Shelf > shelf, bool fails )
       : story_( story ), shelf_( *this, std::move( shelf ) ) {
      shelf_.get()->widthIs( 1 );
      initialized_ = true;
      shelf_.get()->widthIs( 2 );
      if ( fails ) {
         throw std::runtime_error( "not made" );
      }
   }
   char const * reactorName() const noexcept override { return "Starter"; }
   void handleWidth() { story_.add( initialized_ ? "told" : "not initialized" ); }

 private:
   Story & story_;
   bool initialized_ = false;
   Quill::Watch< Starter, Shelf, On< Shelf::widthAttr, &Starter::handleWidth > > shelf_;
};

TEST_F( ReactorTest, HandlersMayRunWhileTheReactorIsBeingMade ) {
   auto const starter = make< Starter >( story_, shelf_, false );
   EXPECT_EQ( starter->refs(), 1 );
   EXPECT_EQ( story_.told(), "not initialized, told" );
}

TEST_F( ReactorTest, ReactorWhoseConstructorThrowsLeavesNoWatchBehind ) {
   EXPECT_THROW( make< Starter >( story_, shelf_, true ), std::runtime_error );
   EXPECT_FALSE( shelf_->hasNotifiees() );
   EXPECT_EQ( Starter::quillAllocation.live, 0 );
   EXPECT_EQ( widthIs( 7 ), "not initialized, told" );
}

} // namespace
