// Members, maps, sets and queues: look-up, insertion, removal, and walks that survive any change.
#include "platform/quill/Collections.h"

#include "platform/quill/Allocation.h"
#include "platform/quill/LinkQueue.h"
#include "platform/quill/String.h"
#include "tests/platform/quill/WalkListModel.h"
#include "tests/support/LeakCheck.h"

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>

namespace {

using Quill::LinkQueue;
using Quill::Map;
using Quill::Members;
using Quill::Name;
using Quill::Ptr;
using Quill::Set;
using Quill::String;
using Valen::Test::LeakCheck;
using Valen::Test::WalkListModel;

// A member keyed by its number.
class Coin final : public Quill::Member {
   QUILL_TRACKED( Coin )
 public:
   explicit Coin( U32 number, std::function< void() > atEnd = nullptr )
       : number_( number ), atEnd_( std::move( atEnd ) ) {}
   ~Coin() override {
      if ( atEnd_ ) {
         atEnd_();
      }
   }
   U32 number() const { return number_; }

 private:
   U32 const number_;
   std::function< void() > const atEnd_;
};

using Coins = Members< Coin, &Coin::number >;

void fill( Coins & coins, U32 count ) {
   for ( U32 number = 0; number < count; ++number ) {
      coins.insert( Quill::make< Coin >( number ) );
   }
}

class CollectionsTest : public ::testing::Test, private LeakCheck {};

TEST_F( CollectionsTest, MembersAreFoundByTheKeyTheyCarry ) {
   Coins coins;
   EXPECT_EQ( coins.find( 7 ), nullptr );
   auto const coin = Quill::make< Coin >( 7 );
   coins.insert( coin );
   EXPECT_EQ( coins.find( 7 ), coin );
   EXPECT_TRUE( coins.has( 7 ) );
   EXPECT_FALSE( coins.has( 8 ) );
   EXPECT_EQ( coins.count(), 1 );
   EXPECT_EQ( coin->refs(), 2 ) << "the collection owns one handle, the test another";
}

TEST_F( CollectionsTest, RemovedMemberIsReturnedAndStaysAlive ) {
   Coins coins;
   fill( coins, 3 );
   auto const coin = coins.remove( 1 );
   EXPECT_EQ( coin->number(), 1 );
   EXPECT_EQ( coin->refs(), 1 );
   EXPECT_FALSE( coins.has( 1 ) );
   EXPECT_EQ( coins.count(), 2 );
   EXPECT_EQ( coins.remove( 1 ), nullptr );
   EXPECT_EQ( coins.count(), 2 );
   coins.insert( coin ); // may be inserted again
   EXPECT_EQ( coins.find( 1 ), coin );
}

TEST_F( CollectionsTest, MapKeepsOneValueUnderAKey ) {
   Map< String, U32 > map;
   EXPECT_EQ( map.find( "a" ), nullptr );
   EXPECT_TRUE( map.set( "a", 1 ) );
   EXPECT_FALSE( map.set( "a", 1 ) ) << "nothing changed";
   EXPECT_TRUE( map.set( "a", 2 ) );
   EXPECT_EQ( *map.find( "a" ), 2 );
   EXPECT_EQ( map.count(), 1 );
   EXPECT_TRUE( map.has( "a" ) );
   EXPECT_TRUE( map.remove( "a" ) );
   EXPECT_FALSE( map.remove( "a" ) );
   EXPECT_FALSE( map.has( "a" ) );
}

TEST_F( CollectionsTest, SetHasAKeyOnce ) {
   Set< Name > set;
   EXPECT_TRUE( set.insert( "a" ) );
   EXPECT_FALSE( set.insert( "a" ) );
   EXPECT_TRUE( set.has( "a" ) );
   EXPECT_EQ( set.count(), 1 );
   EXPECT_TRUE( set.remove( "a" ) );
   EXPECT_FALSE( set.remove( "a" ) );
   EXPECT_EQ( set.count(), 0 );
}

TEST_F( CollectionsTest, HandlesAreKeysByIdentity ) {
   Set< Ptr< Coin > > set;
   auto const one = Quill::make< Coin >( 1 );
   auto const twin = Quill::make< Coin >( 1 );
   EXPECT_TRUE( set.insert( one ) );
   EXPECT_FALSE( set.has( twin ) );
   EXPECT_TRUE( set.insert( twin ) );
   EXPECT_TRUE( set.insert( nullptr ) );
   EXPECT_TRUE( set.has( nullptr ) );
   EXPECT_EQ( set.count(), 3 );
   EXPECT_EQ( one->refs(), 2 );
}

// A key with a weak hash, so that equal hashes share a bucket.
struct DullKey {
   U32 number;
   U64 hash() const { return number % 2; }
   bool operator==( DullKey const & ) const = default;
};

TEST_F( CollectionsTest, KeysOfEqualHashAreDistinguished ) {
   Map< DullKey, U32 > map;
   for ( U32 number = 0; number < 40; ++number ) {
      map.set( { number }, number * 10 );
   }
   for ( U32 number = 0; number < 40; number += 3 ) {
      EXPECT_TRUE( map.remove( { number } ) );
   }
   for ( U32 number = 0; number < 40; ++number ) {
      auto const * const value = map.find( { number } );
      ASSERT_EQ( value != nullptr, number % 3 != 0 ) << number;
      EXPECT_TRUE( !value || *value == number * 10 );
   }
}

// A key whose hash selects one of the last places of the index, so that what is displaced from there goes on
// at the first places.
struct LateKey {
   U32 number;
   U64 hash() const { return ~U64( number % 3 ); }
   bool operator==( LateKey const & ) const = default;
};

TEST_F( CollectionsTest, KeysAreFoundWhateverWasRemovedBeforeThem ) {
   std::minstd_rand random( 3 );
   Map< LateKey, U32 > map;
   std::map< U32, U32 > expected;
   for ( U32 step = 0; step < 2000; ++step ) {
      U32 const number = static_cast< U32 >( random() ) % 40;
      if ( random() % 2 ) {
         map.set( { number }, step );
         expected[ number ] = step;
      } else {
         EXPECT_EQ( map.remove( { number } ), expected.erase( number ) == 1 );
      }
      for ( U32 each = 0; each < 40; ++each ) {
         auto const * const value = map.find( { each } );
         auto const wanted = expected.find( each );
         ASSERT_EQ( value != nullptr, wanted != expected.end() ) << each << " in step " << step;
         ASSERT_TRUE( !value || *value == wanted->second );
      }
   }
}

TEST_F( CollectionsTest, CollectionMayBeUsedWhileItIsEmptied ) {
   Coins coins;
   U32 found = 0;
   for ( U32 number = 0; number < 100; ++number ) {
      coins.insert( Quill::make< Coin >( number, [ &coins, &found, number ] {
         found += coins.has( 99 );
         EXPECT_FALSE( coins.has( number ) );
         if ( number == 50 ) {
            coins.insert( Quill::make< Coin >( 100 ) );
            EXPECT_TRUE( coins.has( 100 ) );
            EXPECT_TRUE( coins.has( 51 ) );
            EXPECT_EQ( coins.remove( 60 )->number(), 60 );
         }
      } ) );
   }
   coins.clear();
   EXPECT_EQ( coins.count(), 0 );
   EXPECT_EQ( found, 99 );
   fill( coins, 20 );
   EXPECT_EQ( coins.find( 19 )->number(), 19 );
}

TEST_F( CollectionsTest, MapIsEmptyBeforeItsValuesAreDestroyed ) {
   Map< U32, Ptr< Coin > > map;
   std::vector< U32 > destroyed;
   for ( U32 number = 0; number < 100; ++number ) {
      map.set( number, Quill::make< Coin >( number, [ &map, &destroyed, number ] {
                  destroyed.push_back( number );
                  EXPECT_FALSE( map.has( 99 ) );
                  EXPECT_FALSE( map.remove( 98 ) );
                  if ( number == 50 ) {
                     map.set( 7, nullptr );
                  }
               } ) );
   }
   map.clear();
   EXPECT_EQ( destroyed.size(), 100 );
   EXPECT_TRUE( std::is_sorted( destroyed.begin(), destroyed.end() ) ) << "in order of insertion";
   EXPECT_EQ( map.count(), 1 ) << "set after it was emptied";
   EXPECT_TRUE( map.has( 7 ) );
}

TEST_F( CollectionsTest, MemberThatOutlivesItsCollectionMayBeInAnother ) {
   Coins later;
   Ptr< Coin > kept;
   {
      Coins coins;
      fill( coins, 20 );
      kept = coins.find( 10 );
   }
   EXPECT_EQ( kept->refs(), 1 );
   fill( later, 5 );
   later.insert( kept );
   std::vector< U32 > seen;
   for ( auto const & coin : later ) {
      seen.push_back( coin->number() );
   }
   EXPECT_EQ( seen, ( std::vector< U32 >{ 0, 1, 2, 3, 4, 10 } ) );
}

TEST_F( CollectionsTest, NumbersOfEverySizeAndSignAreKeys ) {
   Map< S64, U32 > map;
   std::map< S64, U32 > expected;
   for ( U32 bit = 0; bit < 63; ++bit ) {
      for ( S64 const key : { S64( 1 ) << bit, -( S64( 1 ) << bit ) } ) {
         map.set( key, bit );
         expected[ key ] = bit;
      }
   }
   EXPECT_EQ( map.count(), expected.size() );
   for ( auto const & [ key, bit ] : expected ) {
      EXPECT_EQ( *map.find( key ), bit ) << key;
   }
   EXPECT_EQ( map.find( 3 ), nullptr );
}

TEST_F( CollectionsTest, MixingSpreadsSmallNumbersOverTheLowBits ) {
   std::set< U64 > buckets;
   for ( U64 number = 0; number < 256; ++number ) {
      buckets.insert( Quill::mixed( number << 12 ) & 255 ); // as addresses of pages
   }
   EXPECT_GT( buckets.size(), 128 );
}

TEST_F( CollectionsTest, WalkVisitsInOrderOfInsertionAcrossGrowth ) {
   for ( U32 const size : { 1u, 7u, 8u, 9u, 16u, 17u, 33u, 1000u } ) {
      Coins coins;
      fill( coins, size );
      U32 next = 0;
      for ( auto const & coin : coins ) {
         EXPECT_EQ( coin->number(), next++ );
      }
      EXPECT_EQ( next, size );
      for ( U32 number = 0; number < size; ++number ) {
         EXPECT_EQ( coins.find( number )->number(), number );
      }
      EXPECT_FALSE( coins.has( size ) );
   }
}

TEST_F( CollectionsTest, VisitedMemberMayBeDeletedAndIsPinnedMeanwhile ) {
   bool ended = false;
   Coins coins;
   coins.insert( Quill::make< Coin >( 1, [ & ] { ended = true; } ) );
   coins.insert( Quill::make< Coin >( 2 ) );
   U32 visited = 0;
   for ( auto const & coin : coins ) {
      ++visited;
      coins.remove( coin->number() );
      EXPECT_EQ( coin->number(), visited ) << "still there";
      EXPECT_EQ( ended, visited > 1 );
   }
   EXPECT_EQ( visited, 2 );
   EXPECT_EQ( coins.count(), 0 );
}

TEST_F( CollectionsTest, DestructorOfAMemberMayRemoveTheNextOne ) {
   Coins coins;
   coins.insert( Quill::make< Coin >( 1, [ & ] { coins.remove( 2 ); } ) );
   coins.insert( Quill::make< Coin >( 2 ) );
   coins.insert( Quill::make< Coin >( 3 ) );
   std::vector< U32 > visited;
   for ( auto const & coin : coins ) {
      visited.push_back( coin->number() );
      coins.remove( coin->number() ); // destroyed when the walk leaves it
   }
   EXPECT_EQ( visited, ( std::vector< U32 >{ 1, 3 } ) );
}

TEST_F( CollectionsTest, CollectionMayGoWhileItIsWalked ) {
   auto coins = std::make_unique< Coins >();
   fill( *coins, 20 );
   U32 visited = 0;
   for ( auto const & coin : *coins ) {
      EXPECT_EQ( coin->number(), visited++ );
      if ( visited == 5 ) {
         coins.reset();
         EXPECT_EQ( coin->refs(), 1 ) << "held by the walk alone";
      }
   }
   EXPECT_EQ( visited, 5 );
}

TEST_F( CollectionsTest, WalkOverAMapYieldsCopiesThatOutliveTheEntry ) {
   Map< String, Ptr< Coin > > map;
   map.set( "a", Quill::make< Coin >( 1 ) );
   map.set( "b", Quill::make< Coin >( 2 ) );
   std::string seen;
   for ( auto const & entry : map ) {
      map.clear();
      seen += entry.key.stdString() + std::to_string( entry.value->number() );
   }
   EXPECT_EQ( seen, "a1" );
}

TEST_F( CollectionsTest, ValueChangedBeforeItsTurnIsSeenAsItIs ) {
   Map< U32, U32 > map;
   map.set( 1, 10 );
   map.set( 2, 20 );
   std::vector< U32 > seen;
   for ( auto const & entry : map ) {
      map.set( 2, 21 );
      seen.push_back( entry.value );
   }
   EXPECT_EQ( seen, ( std::vector< U32 >{ 10, 21 } ) );
}

// The three collections under random changes, as WalkListModel wants them.
struct MembersOfNumbers {
   void insert( U32 number ) { coins.insert( Quill::make< Coin >( number ) ); }
   void remove( U32 number ) { EXPECT_EQ( coins.remove( number )->number(), number ); }
   void clear() { coins.clear(); }
   bool has( U32 number ) const { return coins.has( number ) && coins.find( number ); }
   U32 count() const { return coins.count(); }
   template < class Visit > void walk( Visit const & visit ) {
      for ( auto const & coin : coins ) {
         if ( !visit( coin->number() ) ) {
            return;
         }
      }
   }
   Coins coins;
};

struct MapOfNumbers {
   static String key( U32 number ) { return "number " + std::to_string( number ); }
   void insert( U32 number ) { EXPECT_TRUE( map.set( key( number ), number ) ); }
   void remove( U32 number ) { EXPECT_TRUE( map.remove( key( number ) ) ); }
   void clear() { map.clear(); }
   bool has( U32 number ) const {
      auto const * const value = map.find( key( number ) );
      EXPECT_EQ( map.has( key( number ) ), value != nullptr );
      return value && *value == number;
   }
   U32 count() const { return map.count(); }
   template < class Visit > void walk( Visit const & visit ) {
      for ( auto const & entry : map ) {
         EXPECT_EQ( entry.key, key( entry.value ) );
         if ( !visit( entry.value ) ) {
            return;
         }
      }
   }
   Map< String, U32 > map;
};

struct SetOfNumbers {
   static Name key( U32 number ) { return Name( std::to_string( number ) ); }
   void insert( U32 number ) { EXPECT_TRUE( set.insert( key( number ) ) ); }
   void remove( U32 number ) { EXPECT_TRUE( set.remove( key( number ) ) ); }
   void clear() { set.clear(); }
   bool has( U32 number ) const { return set.has( key( number ) ); }
   U32 count() const { return set.count(); }
   template < class Visit > void walk( Visit const & visit ) {
      for ( auto const & each : set ) {
         if ( !visit( static_cast< U32 >( std::stoul( each.stdString() ) ) ) ) {
            return;
         }
      }
   }
   Set< Name > set;
};

template < class Subject >
class CollectionUnderRandomChanges : public ::testing::Test, LeakCheck {};

using Subjects = ::testing::Types< MembersOfNumbers, MapOfNumbers, SetOfNumbers >;
TYPED_TEST_SUITE( CollectionUnderRandomChanges, Subjects );

TYPED_TEST( CollectionUnderRandomChanges, HoldsAndVisitsExactlyWhatTheModelDoes ) {
   for ( U32 seed = 1; seed <= 12; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      WalkListModel< TypeParam > model( seed );
      U32 const ranges[] = { 5, 12, 200 }; // searched in order, around the first growth, large
      model.run( 2000, ranges[ seed % 3 ] );
      EXPECT_GT( model.nestedDeletions(), 50 );
      EXPECT_GT( model.largest(), ranges[ seed % 3 ] / 4 );
   }
}

TEST_F( CollectionsTest, QueueIsReadFromHeadToTail ) {
   LinkQueue< String > queue;
   EXPECT_TRUE( queue.empty() );
   EXPECT_EQ( queue.begin(), queue.end() );
   queue.append( "first" );
   queue.append( std::string( "se\0cond", 7 ) );
   queue.append( "" );
   EXPECT_FALSE( queue.empty() );
   EXPECT_EQ( queue.count(), 3 );
   std::vector< std::string > seen;
   for ( auto const & string : queue ) {
      seen.push_back( string.stdString() );
   }
   EXPECT_EQ( seen, ( std::vector< std::string >{ "first", std::string( "se\0cond", 7 ), "" } ) );
}

TEST_F( CollectionsTest, QueueIsReadByPosition ) {
   LinkQueue< U32 > queue;
   EXPECT_EQ( queue.at( 0 ), nullptr );
   for ( U32 const value : { 10u, 11u, 12u } ) {
      queue.append( value );
   }
   EXPECT_EQ( *queue.at( 0 ), 10 );
   EXPECT_EQ( *queue.at( 2 ), 12 );
   EXPECT_EQ( queue.at( 3 ), nullptr );
   EXPECT_EQ( queue.at( UINT32_MAX ), nullptr );
   auto position = queue.begin();
   EXPECT_EQ( *position++, 10 );
   EXPECT_EQ( *position, 11 );
   EXPECT_EQ( *++position, 12 );
}

TEST_F( CollectionsTest, ClearedQueueCanBeFilledAgain ) {
   LinkQueue< String > queue;
   queue.clear();
   queue.append( "old" );
   queue.append( "older" );
   queue.clear();
   EXPECT_EQ( queue.count(), 0 );
   EXPECT_EQ( queue.at( 0 ), nullptr );
   queue.append( "new" );
   EXPECT_EQ( queue.count(), 1 );
   EXPECT_EQ( *queue.begin(), "new" );
   EXPECT_EQ( ++queue.begin(), queue.end() );
}

} // namespace
