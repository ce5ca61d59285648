// Memory and the end of the process: counts by type, the pool, assertions.
#include "platform/quill/Allocation.h"

#include "platform/quill/Assert.h"
#include "platform/quill/Entity.h"
#include "platform/quill/LinkQueue.h"
#include "platform/quill/Pool.h"
#include "platform/quill/Ptr.h"
#include "tests/support/LeakCheck.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

namespace {

using Quill::make;
using Quill::Ptr;

class Sheep : public Quill::PtrInterface {
   QUILL_TRACKED( Farm::Sheep )
};

class Ram final : public Sheep {
   QUILL_TRACKED( Farm::Ram )
   [[maybe_unused]] U64 horns_[ 4 ] = {};
};

class NeverMade final : public Quill::PtrInterface {
   QUILL_TRACKED( Farm::NeverMade )
};

class AllocationTest : public ::testing::Test, private Valen::Test::LeakCheck {};

TEST_F( AllocationTest, ObjectsAreCountedByTypeWhileTheyLive ) {
   auto const & account = Sheep::quillAllocation;
   auto const total = account.total;
   auto const all = Quill::liveObjects();
   {
      auto const one = make< Sheep >();
      auto const two = make< Sheep >();
      EXPECT_EQ( account.live, 2 );
      EXPECT_EQ( account.liveBytes, 2 * sizeof( Sheep ) );
      EXPECT_EQ( Quill::liveObjects(), all + 2 );
   }
   EXPECT_EQ( account.live, 0 );
   EXPECT_EQ( account.liveBytes, 0 );
   EXPECT_EQ( account.total, total + 2 ) << "how many were ever made";
   EXPECT_EQ( Quill::liveObjects(), all );
}

TEST_F( AllocationTest, DerivedObjectIsCountedAsWhatItIsHoweverItEnds ) {
   Ptr< Sheep > sheep = make< Ram >();
   EXPECT_EQ( Ram::quillAllocation.live, 1 );
   EXPECT_EQ( Ram::quillAllocation.liveBytes, sizeof( Ram ) );
   EXPECT_EQ( Sheep::quillAllocation.live, 0 );
   sheep = nullptr;
   EXPECT_EQ( Ram::quillAllocation.live, 0 );
   EXPECT_EQ( Ram::quillAllocation.liveBytes, 0 );
}

TEST_F( AllocationTest, TypesAreListedOnceByNameWhenOneWasMade ) {
   make< Sheep >();
   make< Ram >();
   make< Ram >();
   std::vector< std::string > names;
   for ( auto const * type : Quill::allocationTypes() ) {
      names.push_back( type->name );
   }
   EXPECT_TRUE( std::is_sorted( names.begin(), names.end() ) );
   EXPECT_EQ( std::count( names.begin(), names.end(), "Farm::Ram" ), 1 );
   EXPECT_EQ( std::count( names.begin(), names.end(), "Farm::Sheep" ), 1 );
   EXPECT_EQ( std::count( names.begin(), names.end(), "Farm::NeverMade" ), 0 );
   EXPECT_EQ( NeverMade::quillAllocation.total, 0 );
}

// --- The pool ------------------------------------------------------------------------------------

#if defined( __SANITIZE_ADDRESS__ )
constexpr bool pooling = false; // every object is allocated separately
#elif defined( __has_feature )
constexpr bool pooling = !__has_feature( address_sanitizer );
#else
constexpr bool pooling = true;
#endif

// A piece of memory that is full of one byte.
struct Piece {
   Piece( std::size_t s, U8 f )
       : size( s ), fill( f ), bytes( static_cast< U8 * >( Quill::poolAllocate( s ) ) ) {
      std::memset( bytes, fill, size );
   }
   bool intact() const {
      return std::all_of( bytes, bytes + size, [ this ]( U8 byte ) { return byte == fill; } );
   }
   void give() const { Quill::poolDeallocate( bytes, size ); }

   std::size_t size;
   U8 fill;
   U8 * bytes;
};

TEST( PoolTest, PiecesOfEverySizeAreAlignedAndDoNotOverlap ) {
   std::vector< Piece > pieces;
   for ( std::size_t size = 0; size <= 600; ++size ) { // past what the pool serves
      pieces.emplace_back( size, static_cast< U8 >( size ) );
   }
   for ( auto const & piece : pieces ) {
      EXPECT_EQ( reinterpret_cast< std::size_t >( piece.bytes ) % alignof( void * ), 0 );
      EXPECT_TRUE( piece.intact() ) << piece.size;
      piece.give();
   }
}

TEST( PoolTest, MemoryGivenBackIsHadAgainByTheNextOfItsSize ) {
   for ( std::size_t const size : { 1u, 8u, 9u, 24u, 512u } ) {
      auto * const first = Quill::poolAllocate( size );
      auto * const second = Quill::poolAllocate( size );
      EXPECT_NE( first, second );
      auto const address = reinterpret_cast< std::size_t >( first );
      Quill::poolDeallocate( first, size );
      auto * const again = Quill::poolAllocate( size );
      EXPECT_EQ( reinterpret_cast< std::size_t >( again ) == address, pooling ) << size;
      Quill::poolDeallocate( again, size );
      Quill::poolDeallocate( second, size );
   }
}

TEST( PoolTest, MemoryGivenBackIsNotHadByALargerSize ) {
   auto * const small = Quill::poolAllocate( 16 );
   auto const address = reinterpret_cast< std::size_t >( small );
   Quill::poolDeallocate( small, 16 );
   auto * const large = Quill::poolAllocate( 17 );
   EXPECT_NE( reinterpret_cast< std::size_t >( large ), address );
   Quill::poolDeallocate( large, 17 );
}

// Whether `object` is in the piece of that size that was given back last.
bool isInFreedPiece( void const * object, void const * piece, std::size_t size ) {
   auto const address = reinterpret_cast< std::size_t >( object );
   auto const begin = reinterpret_cast< std::size_t >( piece );
   return address >= begin && address < begin + size;
}

void * freedPiece( std::size_t size ) {
   auto * const piece = Quill::poolAllocate( size );
   Quill::poolDeallocate( piece, size );
   return piece;
}

TEST( PoolTest, NodesOfCollectionsAreMadeInIt ) {
   using Map = Quill::Map< U64, U64 >;
   auto * piece = freedPiece( sizeof( Map::Entry ) );
   Map map;
   map.set( 1, 2 );
   EXPECT_EQ( isInFreedPiece( map.find( 1 ), piece, sizeof( Map::Entry ) ), pooling );

   constexpr auto linkSize = sizeof( U64 ) + sizeof( void * );
   piece = freedPiece( linkSize );
   Quill::LinkQueue< U64 > queue;
   queue.append( 3 );
   EXPECT_EQ( isInFreedPiece( &*queue.begin(), piece, linkSize ), pooling );

   piece = freedPiece( 3 * sizeof( U32 ) );
   std::vector< U32, Quill::PoolAllocator< U32 > > const vector{ 1, 2, 3 };
   EXPECT_EQ( isInFreedPiece( vector.data(), piece, 3 * sizeof( U32 ) ), pooling );
}

// What every entity and every entry of a map cost, in memory and in the caches.
TEST( PoolTest, EntitiesAndEntriesStaySmall ) {
   EXPECT_LE( sizeof( Quill::Entity ), 72 );
   EXPECT_LE( sizeof( Quill::Map< U64, U64 >::Entry ), 32 );
}

TEST( PoolTest, PiecesStayWholeUnderRandomUse ) {
   std::minstd_rand random( 7 );
   std::vector< Piece > pieces;
   for ( int step = 0; step < 20000; ++step ) {
      if ( pieces.empty() || random() % 5 < 3 ) {
         pieces.emplace_back( random() % 560, static_cast< U8 >( random() ) );
      } else {
         std::swap( pieces[ random() % pieces.size() ], pieces.back() );
         ASSERT_TRUE( pieces.back().intact() );
         pieces.back().give();
         pieces.pop_back();
      }
   }
   for ( auto const & piece : pieces ) {
      ASSERT_TRUE( piece.intact() );
      piece.give();
   }
}

// --- Assertions ----------------------------------------------------------------------------------

void sayGoodbye() noexcept {
   std::fprintf( stderr, "the hook runs\n" );
}

void assertAgain() noexcept {
   VALEN_ASSERT( false && "in the hook" );
}

TEST( AssertTest, AssertionThatHoldsDoesNothing ) {
   int evaluations = 0;
   VALEN_ASSERT( ++evaluations == 1 );
   EXPECT_EQ( evaluations, 1 );
}

TEST( AssertTest, FailedAssertionSaysExpressionPlaceAndFunctionAndAborts ) {
   int const sheep = 2;
   EXPECT_EXIT( VALEN_ASSERT( sheep == 3 ), ::testing::KilledBySignal( SIGABRT ),
                "^assertion failed: sheep == 3 at .*AllocationTest.cpp:[0-9]+ in virtual void "
                ".*FailedAssertionSaysExpression.*TestBody\\(\\)\n$" );
}

TEST( AssertTest, FailureIsOneLineOfExpressionPlaceAndFunction ) {
   EXPECT_DEATH( Quill::assertionFailed( "a == b", "platform/quill/Ptr.h", 12, "void f()" ),
                 "^assertion failed: a == b at platform/quill/Ptr.h:12 in void f\\(\\)\n$" );
}

TEST( AssertTest, HookRunsOnceAfterTheTextAndBeforeTheEnd ) {
   EXPECT_DEATH(
      {
         Quill::abortHookIs( &sayGoodbye );
         VALEN_ASSERT( false );
      },
      "^assertion failed: false at .*\nthe hook runs\n$" );
   EXPECT_DEATH(
      {
         Quill::abortHookIs( &sayGoodbye );
         Quill::abortWith( "no way on" );
      },
      "^no way on\nthe hook runs\n$" );
}

TEST( AssertTest, HookThatFailsItselfIsNotRunAgain ) {
   EXPECT_DEATH(
      {
         Quill::abortHookIs( &assertAgain );
         Quill::abortWith( "no way on" );
      },
      "^no way on\nassertion failed: false && \"in the hook\" at .*\n$" );
   EXPECT_DEATH(
      {
         Quill::abortHookIs( &assertAgain );
         VALEN_ASSERT( 1 == 2 );
      },
      "^assertion failed: 1 == 2 at [^\n]*\nassertion failed: false && [^\n]*\n$" );
}

TEST( AssertTest, InstallingAHookReturnsTheOneBefore ) {
   auto const before = Quill::abortHookIs( &sayGoodbye );
   EXPECT_EQ( Quill::abortHookIs( before ), &sayGoodbye );
}

// An explicit instantiation may name what is private: the only way to break a queue from outside.
using Queue = Quill::LinkQueue< U32 >;
void loseTail( Queue & queue );
template < auto tail > struct Breaker {
   friend void loseTail( Queue & queue ) { queue.*tail = nullptr; }
};
template struct Breaker< &Queue::tail_ >;

TEST( AssertTest, QueueWithoutATailIsNotAppendedTo ) {
   Queue queue;
   queue.append( 1 );
   loseTail( queue );
   EXPECT_DEATH( queue.append( 2 ),
                 "^assertion failed: tail_ != nullptr at platform/quill/LinkQueue.h:[0-9]+ in void "
                 "Quill::LinkQueue<.*>::append\\(.*\n$" );
}

} // namespace
