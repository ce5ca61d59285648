// Children of a reactor: what happens if there is one already, and how they are retired.
#include "platform/quill/Children.h"

#include "platform/quill/Watch.h"
#include "tests/platform/quill/EntityModel.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/NameInUse.h"

#include <functional>

namespace {

using Quill::make;
using Quill::Name;
using Quill::Parameter;
using Quill::Ptr;
using Valen::Test::Box;
using Valen::Test::Shelf;

using Names = std::vector< std::string >;

// A child with a key and two more parameters. Its handler runs what the test asks for.
class Picker final : public Quill::Reactor {
   QUILL_TRACKED( Picker )
 public:
   Picker( Name name, Ptr< Shelf > shelf, U32 speed )
       : name_( std::move( name ) ), shelf_( *this, std::move( shelf ) ), speed_( speed ) {}

   char const * reactorName() const noexcept override { return "Picker"; }

   Name const & name() const noexcept { return name_; }
   Ptr< Shelf > shelf() const noexcept { return shelf_.handle(); }
   U32 speed() const noexcept { return speed_; }

   static constexpr auto quillParameters() {
      return std::tuple( Parameter( "_shelf", &Picker::shelf ),
                         Parameter( "_speed", &Picker::speed ) );
   }

   void handleWidth() {
      ++widths;
      if ( onWidth ) {
         onWidth();
      }
   }

   U32 widths = 0;
   U64 const livesAtBirth = quillAllocation.live; // itself included
   std::function< void() > onWidth;

 private:
   Name const name_;
   Quill::Watch< Picker, Shelf, Quill::On< Shelf::widthAttr, &Picker::handleWidth > > shelf_;
   U32 const speed_;
};

std::string const otherSpeed =
   "Reinstantiating the pointer interface where constructor parameter attribute _speed has a "
   "different value of 2 than the current value of 1";

class ChildrenTest : public ::testing::Test, private Valen::Test::LeakCheck {
 protected:
   Names names() const {
      Names found;
      for ( auto const & child : children_ ) {
         found.push_back( child->name().stdString() );
      }
      return found;
   }
   static U64 lives() { return Picker::quillAllocation.live; }

   Ptr< Shelf > const shelf_ = make< Shelf >();
   Quill::Children< Picker, &Picker::name > children_;
};

TEST_F( ChildrenTest, InstantiateMakesAChildUnderItsKey ) {
   auto const child = children_.instantiate( "a", shelf_, 1u );
   EXPECT_EQ( child->name(), Name( "a" ) );
   EXPECT_EQ( child->shelf(), shelf_ );
   EXPECT_EQ( children_.find( "a" ), child );
   EXPECT_TRUE( children_.has( "a" ) );
   EXPECT_EQ( children_.find( "b" ), nullptr );
   EXPECT_EQ( children_.count(), 1 );
}

TEST_F( ChildrenTest, WalkVisitsChildrenInTheOrderInWhichTheyWereMade ) {
   children_.instantiate( "b", shelf_, 1u );
   children_.instantiate( "a", shelf_, 1u );
   EXPECT_EQ( names(), ( Names{ "b", "a" } ) );
}

TEST_F( ChildrenTest, InstantiateReturnsAChildOfTheSameParameters ) {
   auto const child = children_.instantiate( "a", shelf_, 1u );
   EXPECT_EQ( children_.instantiate( "a", shelf_, 1u ), child );
   EXPECT_EQ( children_.count(), 1 );
}

TEST_F( ChildrenTest, InstantiateWithAnotherParameterFailsAndChangesNothing ) {
   auto const child = children_.instantiate( "a", shelf_, 1u );
   EXPECT_EQ( Valen::Test::nameInUse( [ & ] { children_.instantiate( "a", shelf_, 2u ); } ),
              otherSpeed );
   EXPECT_EQ( children_.find( "a" ), child );
   EXPECT_EQ( lives(), 1 );
}

TEST_F( ChildrenTest, ErrorNamesTheFirstParameterThatDiffers ) {
   children_.instantiate( "a", shelf_, 1u );
   auto const error =
      Valen::Test::nameInUse( [ & ] { children_.instantiate( "a", make< Shelf >(), 2u ); } );
   EXPECT_NE( error.find( " _shelf " ), std::string::npos ) << error;
}

TEST_F( ChildrenTest, FindOrMakeReturnsAChildOfAnyParameters ) {
   auto const child = children_.findOrMake( "a", shelf_, 1u );
   EXPECT_EQ( children_.findOrMake( "a", shelf_, 2u ), child );
   EXPECT_EQ( child->speed(), 1 );
}

TEST_F( ChildrenTest, ReplaceKeepsAChildOfTheSameParameters ) {
   auto const child = children_.replace( "a", shelf_, 1u );
   EXPECT_EQ( children_.replace( "a", shelf_, 1u ), child );
   EXPECT_EQ( lives(), 1 );
}

TEST_F( ChildrenTest, ReplaceDestroysAChildOfOtherParametersBeforeItMakesTheNewOne ) {
   children_.replace( "a", shelf_, 1u );
   auto const child = children_.replace( "a", shelf_, 2u );
   EXPECT_EQ( child->speed(), 2 );
   EXPECT_EQ( child->livesAtBirth, 1 );
   EXPECT_EQ( children_.count(), 1 );
   EXPECT_EQ( lives(), 1 );
}

TEST_F( ChildrenTest, RetireDestroysTheChild ) {
   for ( char const * name : { "a", "b", "c" } ) {
      children_.instantiate( name, shelf_, 1u );
   }
   children_.retire( "a" );
   children_.retire( "absent" );
   EXPECT_EQ( names(), ( Names{ "b", "c" } ) );
   EXPECT_EQ( lives(), 2 );
   children_.retireAll();
   EXPECT_EQ( children_.count(), 0 );
   EXPECT_EQ( lives(), 0 );
}

TEST_F( ChildrenTest, ChildRetiredInItsOwnHandlerIsSilentAndStaysAliveUntilTheHandlerReturns ) {
   auto & child = *children_.instantiate( "a", shelf_, 1u );
   U64 livesInside = 0;
   U32 widthsInside = 0;
   child.onWidth = [ & ] {
      children_.retire( "a" );
      shelf_->widthIs( 2 );
      livesInside = lives();
      widthsInside = child.widths;
   };
   shelf_->widthIs( 1 );
   EXPECT_EQ( livesInside, 1 );
   EXPECT_EQ( widthsInside, 1 );
   EXPECT_EQ( lives(), 0 );
}

TEST_F( ChildrenTest, RemovedChildStaysActive ) {
   children_.instantiate( "a", shelf_, 1u );
   auto const child = children_.remove( "a" );
   EXPECT_EQ( children_.remove( "a" ), nullptr );
   shelf_->widthIs( 1 );
   EXPECT_EQ( child->widths, 1 );
}

// The key of this one is a property of its only parameter.
class BoxPicker final : public Quill::Reactor {
   QUILL_TRACKED( BoxPicker )
 public:
   explicit BoxPicker( Ptr< Box > box ) : box_( std::move( box ) ) {}

   char const * reactorName() const noexcept override { return "BoxPicker"; }
   Name const & name() const noexcept { return box_->name(); }
   Ptr< Box > const & box() const noexcept { return box_; }

   static constexpr auto quillParameters() {
      return std::tuple( Parameter( "_box", &BoxPicker::box ) );
   }

 private:
   Ptr< Box > const box_;
};

TEST_F( ChildrenTest, ChildThatDoesNotTakeItsKeyIsMadeFromTheOtherParameters ) {
   Quill::Children< BoxPicker, &BoxPicker::name > children;
   auto const box = make< Box >( "a" );
   auto const child = children.instantiate( box->name(), box );
   EXPECT_EQ( child->box(), box );
   EXPECT_EQ( children.find( "a" ), child );
}

class ChildTest : public ChildrenTest {
 protected:
   Quill::Child< Picker > child_;
};

TEST_F( ChildTest, ThereIsNoneAtFirst ) {
   EXPECT_FALSE( child_ );
   EXPECT_EQ( child_.get(), nullptr );
}

TEST_F( ChildTest, SetRetiresTheChildBefore ) {
   child_.set( make< Picker >( "a", shelf_, 1u ) );
   child_.set( make< Picker >( "b", shelf_, 1u ) );
   EXPECT_EQ( child_->name(), Name( "b" ) );
   EXPECT_EQ( lives(), 1 );
   child_.retire();
   EXPECT_FALSE( child_ );
   EXPECT_EQ( lives(), 0 );
}

TEST_F( ChildTest, ChildSetAgainInItsOwnHandlerStaysActive ) {
   child_.set( make< Picker >( "a", shelf_, 1u ) );
   child_->onWidth = [ & ] { child_.set( child_.get() ); };
   shelf_->widthIs( 1 );
   shelf_->widthIs( 2 );
   EXPECT_EQ( child_->widths, 2 );
}

// The only child has no key: all its parameters are compared.
class OnlyPicker final : public Quill::Reactor {
   QUILL_TRACKED( OnlyPicker )
 public:
   explicit OnlyPicker( U32 speed ) : speed_( speed ) {}

   char const * reactorName() const noexcept override { return "OnlyPicker"; }
   U32 speed() const noexcept { return speed_; }

   static constexpr auto quillParameters() {
      return std::tuple( Parameter( "_speed", &OnlyPicker::speed ) );
   }

 private:
   U32 const speed_;
};

TEST( OnlyChildTest, InstantiateReturnsTheChildOfTheSameParametersAndFailsForOthers ) {
   Quill::Child< OnlyPicker > child;
   auto const made = child.instantiate( 1u );
   EXPECT_EQ( child.instantiate( 1u ), made );
   EXPECT_EQ( Valen::Test::nameInUse( [ & ] { child.instantiate( 2u ); } ), otherSpeed );
   EXPECT_EQ( child.get(), made );
}

TEST( OnlyChildTest, ReplaceKeepsTheChildOfTheSameParametersAndReplacesOthers ) {
   Quill::Child< OnlyPicker > child;
   child.replace( 1u );
   auto made = child.get();
   child.replace( 1u );
   EXPECT_EQ( child.get(), made );
   made = nullptr;
   child.replace( 2u );
   EXPECT_EQ( child->speed(), 2 );
   EXPECT_EQ( OnlyPicker::quillAllocation.live, 1 );
}

} // namespace
