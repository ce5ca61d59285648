// A model of everything that is walked: plain vectors say what a walk has still to visit, random
// operations change both, and each step of each walk, nested ones included, is compared.
#pragma once

#include "platform/quill/Int.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace Valen::Test {

// `Subject` is the thing under test, an ordered collection of numbers:
//   insert( n )  remove( n )  clear()  has( n )  count()  walk( visit ), where visit( n ) returns
//   whether the walk goes on
template < class Subject > class WalkListModel {
 public:
   explicit WalkListModel( U32 seed ) : random_( seed ) {}

   // Makes `steps` random changes; numbers run from 0 to `range` - 1.
   void run( int steps, U32 range ) {
      range_ = range;
      for ( steps_ = steps; steps_ > 0 && !::testing::Test::HasFailure(); --steps_ ) {
         step();
      }
      EXPECT_TRUE( pending_.empty() );
   }

   U64 nestedDeletions() const { return nestedDeletions_; }
   std::size_t largest() const { return largest_; }

 private:
   U32 below( U32 limit ) { return static_cast< U32 >( random_() % limit ); }

   void step() {
      U32 const dice = below( 100 );
      if ( dice < 50 ) {
         insert( below( range_ ) );
      } else if ( dice < 86 ) {
         remove( below( range_ ) );
      } else if ( dice < 87 && below( 8 ) == 0 ) {
         clear();
      } else if ( pending_.size() < 4 ) {
         walk();
      }
      check();
   }

   void insert( U32 number ) {
      if ( std::find( order_.begin(), order_.end(), number ) == order_.end() ) {
         subject_.insert( number );
         order_.push_back( number );
         largest_ = std::max( largest_, order_.size() );
      }
   }

   void remove( U32 number ) {
      if ( std::erase( order_, number ) ) {
         for ( auto & pending : pending_ ) {
            nestedDeletions_ += std::erase( pending, number );
         }
         subject_.remove( number );
      }
   }

   void clear() {
      order_.clear();
      for ( auto & pending : pending_ ) {
         pending.clear();
      }
      subject_.clear();
   }

   // Walks the subject, changing it meanwhile, and gives up now and then.
   void walk() {
      pending_.push_back( order_ );
      auto const level = pending_.size() - 1;
      bool complete = true;
      subject_.walk( [ & ]( U32 number ) {
         auto & pending = pending_[ level ];
         if ( pending.empty() || pending.front() != number ) {
            ADD_FAILURE() << "a walk visits " << number << " out of turn";
            return complete = false;
         }
         pending.erase( pending.begin() );
         if ( below( 4 ) == 0 ) {
            remove( number ); // what is being visited
         }
         for ( U32 changes = below( 3 ); changes && steps_ > 0; --changes, --steps_ ) {
            step();
         }
         return complete = below( 64 ) != 0;
      } );
      EXPECT_TRUE( !complete || pending_[ level ].empty() ) << "a walk leaves something out";
      pending_.pop_back();
   }

   void check() {
      EXPECT_EQ( subject_.count(), order_.size() );
      U32 const number = below( range_ );
      EXPECT_EQ( subject_.has( number ),
                 std::find( order_.begin(), order_.end(), number ) != order_.end() );
   }

   Subject subject_;
   std::vector< U32 > order_;                  // what is there, in order of insertion
   std::vector< std::vector< U32 > > pending_; // what each open walk has still to visit
   std::minstd_rand random_;
   U32 range_ = 0;
   int steps_ = 0;
   U64 nestedDeletions_ = 0;
   std::size_t largest_ = 0;
};

} // namespace Valen::Test
