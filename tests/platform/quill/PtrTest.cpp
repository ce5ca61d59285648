// The handle: counting, identity, conversion, and an object's construction and destruction.
#include "platform/quill/Ptr.h"

#include "platform/quill/Allocation.h"
#include "tests/support/LeakCheck.h"

#include <functional>
#include <stdexcept>
#include <type_traits>

namespace {

using Quill::make;
using Quill::Ptr;
using Quill::ptrCast;

class Part : public Quill::PtrInterface {
   QUILL_TRACKED( Part )
 public:
   explicit Part( std::function< void( Part & ) > atEnd = nullptr )
       : atEnd_( std::move( atEnd ) ) {}
   ~Part() override {
      if ( atEnd_ ) {
         atEnd_( *this );
      }
   }

 private:
   std::function< void( Part & ) > const atEnd_;
};

class Wheel final : public Part {
   QUILL_TRACKED( Wheel )
 public:
   using Part::Part;
};

class PtrTest : public ::testing::Test, private Valen::Test::LeakCheck {};

static_assert( sizeof( Ptr< Part > ) == sizeof( void * ), "one word" );
static_assert( std::is_convertible_v< Ptr< Wheel >, Ptr< Part const > > );
static_assert( !std::is_convertible_v< Ptr< Part >, Ptr< Wheel > > );
static_assert( !std::is_convertible_v< Ptr< Part const >, Ptr< Part > > );

TEST_F( PtrTest, MadeObjectHasOneReference ) {
   auto const part = make< Part >();
   EXPECT_EQ( part->refs(), 1 );
}

TEST_F( PtrTest, CopyingCountsAndGoingCountsBack ) {
   auto const part = make< Part >();
   {
      auto const copy = part; // NOLINT(performance-unnecessary-copy-initialization)
      EXPECT_EQ( part->refs(), 2 );
      Ptr< Part > const byAddress( part.get() );
      EXPECT_EQ( part->refs(), 3 );
   }
   EXPECT_EQ( part->refs(), 1 );
}

TEST_F( PtrTest, MovingDoesNotCount ) {
   auto part = make< Part >();
   auto * const object = part.get();
   auto const moved = std::move( part );
   EXPECT_EQ( moved.get(), object );
   EXPECT_EQ( moved->refs(), 1 );
   EXPECT_EQ( part, nullptr ); // NOLINT(bugprone-use-after-move)
}

TEST_F( PtrTest, LastHandleDestroysTheObject ) {
   int ended = 0;
   auto first = make< Part >( [ & ]( Part & ) { ++ended; } );
   auto second = first;
   first = nullptr;
   EXPECT_EQ( ended, 0 );
   second = nullptr;
   EXPECT_EQ( ended, 1 );
}

TEST_F( PtrTest, AssignmentLetsGoOfTheOldObject ) {
   bool ended = false;
   auto handle = make< Part >( [ & ]( Part & ) { ended = true; } );
   auto const other = make< Part >();
   handle = other;
   EXPECT_TRUE( ended );
   EXPECT_EQ( other->refs(), 2 );
}

TEST_F( PtrTest, AssignmentToItselfChangesNothing ) {
   auto handle = make< Part >();
   auto const & same = handle;
   handle = same;
   EXPECT_EQ( handle->refs(), 1 );
}

TEST_F( PtrTest, HandleIsAlreadyNullWhenTheObjectIsDestroyed ) {
   Ptr< Part > handle;
   bool wasNull = false;
   handle = make< Part >( [ & ]( Part & ) { wasNull = handle == nullptr; } );
   handle = nullptr;
   EXPECT_TRUE( wasNull );
}

TEST_F( PtrTest, NullIsANormalValue ) {
   Ptr< Part > const null;
   EXPECT_FALSE( null );
   EXPECT_EQ( null, nullptr );
   EXPECT_EQ( null, Ptr< Part >( nullptr ) );
   Ptr< Part > const copy = null; // NOLINT(performance-unnecessary-copy-initialization)
   EXPECT_EQ( copy.get(), nullptr );
   EXPECT_NE( make< Part >(), null );
   EXPECT_EQ( ptrCast< Wheel >( null ), nullptr );
}

TEST_F( PtrTest, EqualityIsIdentityWhateverTheType ) {
   auto const wheel = make< Wheel >();
   Ptr< Part > const part = wheel;
   Ptr< Part const > const constPart = part;
   EXPECT_EQ( wheel, part );
   EXPECT_EQ( part, constPart );
   EXPECT_NE( part, make< Part >() );
   EXPECT_EQ( wheel->refs(), 3 );
}

TEST_F( PtrTest, OrderIsStrict ) {
   auto const a = make< Part >();
   auto const b = make< Part >();
   EXPECT_NE( a < b, b < a );
   EXPECT_FALSE( a < a ); // NOLINT(misc-redundant-expression)
   EXPECT_TRUE( Ptr< Part >() < a );
}

TEST_F( PtrTest, ConversionFromATemporaryTakesItsReference ) {
   Ptr< Part const > const part = make< Wheel >();
   EXPECT_EQ( part->refs(), 1 );
}

TEST_F( PtrTest, CastGivesTheRealTypeOrNull ) {
   Ptr< Part > const part = make< Part >();
   Ptr< Part > const wheel = make< Wheel >();
   EXPECT_EQ( ptrCast< Wheel >( part ), nullptr );
   Ptr< Wheel > const cast = ptrCast< Wheel >( wheel );
   EXPECT_EQ( cast, wheel );
   EXPECT_EQ( wheel->refs(), 2 );
}

TEST_F( PtrTest, ReleaseAndAdoptHandAReferenceOn ) {
   auto handle = make< Part >();
   auto * const object = handle.release();
   EXPECT_EQ( handle, nullptr );
   EXPECT_EQ( object->refs(), 1 );
   auto const adopted = Ptr< Part >::adopt( object );
   EXPECT_EQ( adopted->refs(), 1 );
}

// An object that makes handles to itself in its constructor.
class SelfTeller final : public Quill::PtrInterface {
   QUILL_TRACKED( SelfTeller )
 public:
   SelfTeller() {
      Ptr< SelfTeller > const self( this ); // temporary
      EXPECT_EQ( refs(), 2 );
   }
};

TEST_F( PtrTest, ConstructorMayHandItselfAround ) {
   EXPECT_EQ( make< SelfTeller >()->refs(), 1 );
}

TEST_F( PtrTest, DestructorMayHandItselfAround ) {
   int ended = 0;
   auto part = make< Part >( [ & ]( Part & self ) {
      ++ended;
      Ptr< Part > const handle( &self );
      Ptr< Part > const copy = handle; // NOLINT(performance-unnecessary-copy-initialization)
   } );
   part = nullptr;
   EXPECT_EQ( ended, 1 );
}

class Refuser final : public Quill::PtrInterface {
   QUILL_TRACKED( Refuser )
 public:
   Refuser() { throw std::runtime_error( "refused" ); }
};

TEST_F( PtrTest, ConstructorThatThrowsLeavesNothingBehind ) {
   EXPECT_THROW( make< Refuser >(), std::runtime_error );
   EXPECT_EQ( Refuser::quillAllocation.live, 0 );
   EXPECT_EQ( Refuser::quillAllocation.total, 1 ) << "it was allocated and freed";
}

} // namespace
