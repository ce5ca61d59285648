// The list behind watchers and collections: it may change in any way while it is walked.
#include "platform/quill/WalkList.h"

#include "tests/platform/quill/WalkListModel.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace {

using Quill::Walk;
using Quill::WalkHook;
using Quill::WalkList;
using Valen::Test::WalkListModel;

struct Item : WalkHook {
   explicit Item( char n = '?' ) : name( n ) {}
   char name;
};

// A list of the items a, b, c, d.
class WalkListTest : public ::testing::Test {
 protected:
   WalkListTest() {
      for ( auto & item : items_ ) {
         list_->append( item );
      }
   }

   // What one walk over the list visits; `meanwhile` runs while the item `at` is visited.
   std::string walk( char at = 0, std::function< void() > const & meanwhile = nullptr ) {
      std::string seen;
      Walk walk( *list_ );
      while ( auto * const hook = walk.next() ) {
         char const name = static_cast< Item * >( hook )->name;
         seen += name;
         if ( name == at ) {
            meanwhile();
         }
      }
      EXPECT_EQ( walk.next(), nullptr ) << "an ended walk stays at its end";
      return seen;
   }

   Item & item( char name ) { return items_[ static_cast< std::size_t >( name - 'a' ) ]; }
   void remove( char name ) { list_->remove( item( name ) ); }

   std::array< Item, 4 > items_{ Item( 'a' ), Item( 'b' ), Item( 'c' ), Item( 'd' ) };
   Item newcomer_{ 'n' };
   std::optional< WalkList > list_{ std::in_place };
};

TEST_F( WalkListTest, WalkVisitsInOrderOfInsertion ) {
   EXPECT_EQ( walk(), "abcd" );
   list_->append( newcomer_ );
   EXPECT_EQ( walk(), "abcdn" );
}

TEST_F( WalkListTest, HeadAndAfterStepThroughTheList ) {
   EXPECT_EQ( list_->head(), &item( 'a' ) );
   EXPECT_EQ( WalkList::after( item( 'a' ) ), &item( 'b' ) );
   EXPECT_EQ( WalkList::after( item( 'd' ) ), nullptr );
}

TEST_F( WalkListTest, EmptiedListIsEmptyAndCanBeFilledAgain ) {
   for ( char const name : { 'b', 'd', 'a', 'c' } ) {
      EXPECT_FALSE( list_->empty() );
      remove( name );
   }
   EXPECT_TRUE( list_->empty() );
   EXPECT_EQ( list_->head(), nullptr );
   EXPECT_EQ( walk(), "" );
   list_->append( item( 'c' ) );
   EXPECT_EQ( walk(), "c" );
}

TEST_F( WalkListTest, ElementRemovedBeforeItsTurnIsNotVisitedAtAnyPosition ) {
   for ( char const at : { 'a', 'b', 'c', 'd' } ) {
      for ( char const gone : { 'a', 'b', 'c', 'd' } ) {
         SCOPED_TRACE( std::string( "at " ) + at + " removing " + gone );
         std::string expected = "abcd";
         if ( gone > at ) {
            std::erase( expected, gone );
         }
         EXPECT_EQ( walk( at, [ & ] { remove( gone ); } ), expected );
         list_.emplace();
         for ( auto & each : items_ ) {
            list_->append( each );
         }
      }
   }
}

TEST_F( WalkListTest, OneRemovedAndPutBackBeforeItsTurnIsNotSeenByThatWalk ) {
   EXPECT_EQ( walk( 'b',
                    [ & ] {
                       remove( 'c' );
                       list_->append( item( 'c' ) );
                    } ),
              "abd" );
   EXPECT_EQ( walk(), "abdc" );
}

TEST_F( WalkListTest, LastOneRemovedAndPutBackIsNotSeenByThatWalk ) {
   EXPECT_EQ( walk( 'b',
                    [ & ] {
                       remove( 'd' );
                       list_->append( item( 'd' ) );
                    } ),
              "abc" );
}

TEST_F( WalkListTest, OneAddedMeanwhileIsSeenByLaterWalksOnly ) {
   for ( char const at : { 'a', 'b', 'c', 'd' } ) {
      EXPECT_EQ( walk( at, [ & ] { list_->append( newcomer_ ); } ), "abcd" );
      EXPECT_EQ( walk(), "abcdn" );
      list_->remove( newcomer_ );
   }
}

TEST_F( WalkListTest, OneAddedAfterTheLastWasRemovedIsNotSeenByThatWalk ) {
   EXPECT_EQ( walk( 'd',
                    [ & ] {
                       remove( 'd' );
                       list_->append( newcomer_ );
                    } ),
              "abcd" );
   EXPECT_EQ( walk(), "abcn" );
}

TEST_F( WalkListTest, EverythingRemovedEndsTheWalk ) {
   EXPECT_EQ( walk( 'b',
                    [ & ] {
                       for ( char const name : { 'd', 'a', 'b', 'c' } ) {
                          remove( name );
                       }
                       list_->append( newcomer_ );
                    } ),
              "ab" );
   EXPECT_EQ( walk(), "n" );
}

TEST_F( WalkListTest, DestroyedListEndsEveryWalkOverIt ) {
   std::string inner;
   EXPECT_EQ( walk( 'b', [ & ] { inner = walk( 'a', [ & ] { list_.reset(); } ); } ), "ab" );
   EXPECT_EQ( inner, "a" );
}

TEST_F( WalkListTest, ReleasedElementsAreLinkedInOrderAndNoWalkSeesThem ) {
   std::string released;
   EXPECT_EQ( walk( 'b',
                    [ & ] {
                       for ( auto * hook = list_->release(); hook;
                             hook = WalkList::after( *hook ) ) {
                          released += static_cast< Item * >( hook )->name;
                       }
                       list_->append( newcomer_ );
                    } ),
              "ab" );
   EXPECT_EQ( released, "abcd" );
   EXPECT_EQ( walk(), "n" );
   list_->append( item( 'c' ) ); // may be in a list again
   EXPECT_EQ( walk(), "nc" );
}

TEST_F( WalkListTest, WhatIsAppendedAfterAnyRemovalIsLast ) {
   for ( char const gone : { 'a', 'b', 'c', 'd' } ) {
      remove( gone );
      list_->append( newcomer_ );
      auto expected = std::string( "abcdn" );
      std::erase( expected, gone );
      EXPECT_EQ( walk(), expected );
      list_.emplace();
      for ( auto & each : items_ ) {
         list_->append( each );
      }
   }
}

TEST_F( WalkListTest, RemovalInsideANestedWalkIsSeenByBoth ) {
   std::string inner;
   EXPECT_EQ( walk( 'b', [ & ] { inner = walk( 'a', [ & ] { remove( 'c' ); } ); } ), "abd" );
   EXPECT_EQ( inner, "abd" );
   EXPECT_EQ( walk( 'a', [ & ] { inner = walk( 'd', [ & ] { remove( 'b' ); } ); } ), "ad" );
   EXPECT_EQ( inner, "abd" );
}

TEST_F( WalkListTest, NestedWalkSeesWhatTheOuterOneDoesNot ) {
   std::string inner;
   EXPECT_EQ( walk( 'a',
                    [ & ] {
                       list_->append( newcomer_ );
                       inner = walk();
                    } ),
              "abcd" );
   EXPECT_EQ( inner, "abcdn" );
}

TEST_F( WalkListTest, WalksMayEndInAnyOrder ) {
   auto first = std::make_unique< Walk >( *list_ );
   auto second = std::make_unique< Walk >( *list_ );
   auto third = std::make_unique< Walk >( *list_ );
   second.reset();
   remove( 'a' );
   EXPECT_EQ( first->next(), &item( 'b' ) );
   first.reset();
   remove( 'b' );
   EXPECT_EQ( third->next(), &item( 'c' ) );
}

// The list under random changes.
class ListOfNumbers {
 public:
   ~ListOfNumbers() { clear(); }

   void insert( U32 number ) { list_.append( at( number ).emplace( number ) ); }
   void remove( U32 number ) {
      list_.remove( *at( number ) );
      at( number ).reset();
   }
   void clear() {
      for ( U32 number = 0; number < elements_.size(); ++number ) {
         if ( at( number ) ) {
            remove( number );
         }
      }
   }
   bool has( U32 number ) { return at( number ).has_value(); }
   std::size_t count() const {
      std::size_t count = 0;
      for ( auto * hook = list_.head(); hook; hook = WalkList::after( *hook ) ) {
         ++count;
      }
      return count;
   }
   template < class Visit > void walk( Visit const & visit ) {
      Walk walk( list_ );
      while ( auto * const hook = walk.next() ) {
         if ( !visit( static_cast< Element * >( hook )->number ) ) {
            return;
         }
      }
   }

 private:
   struct Element : WalkHook {
      explicit Element( U32 n ) : number( n ) {}
      U32 number;
   };
   std::optional< Element > & at( U32 number ) { return elements_.at( number ); }

   WalkList list_;
   std::array< std::optional< Element >, 64 > elements_;
};

TEST( WalkListUnderRandomChanges, EachWalkVisitsExactlyWhatItShould ) {
   for ( U32 seed = 1; seed <= 20; ++seed ) {
      SCOPED_TRACE( "seed " + std::to_string( seed ) );
      WalkListModel< ListOfNumbers > model( seed );
      model.run( 3000, seed % 2 ? 6 : 64 );
      EXPECT_GT( model.nestedDeletions(), 100 );
   }
}

} // namespace
