// Times two ways of doing the same work in alternation, so that any disturbance affects both.
#pragma once

#include "platform/quill/Int.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <optional>
#include <vector>

namespace Valen::Bench {

// Nanoseconds of `clock` that `work` takes.
template < class Work > double timeOn( clockid_t clock, Work const & work ) {
   auto const now = [ clock ] {
      timespec time{};
      ::clock_gettime( clock, &time );
      return static_cast< double >( time.tv_sec ) * 1e9 + static_cast< double >( time.tv_nsec );
   };
   auto const start = now();
   work();
   return now() - start;
}

// CPU time of this thread in `work`, the kernel included, in nanoseconds. Other load does not count.
template < class Work > double timeOf( Work const & work ) {
   return timeOn( CLOCK_THREAD_CPUTIME_ID, work );
}

// Elapsed time of `work` in nanoseconds.
template < class Work > double wallTimeOf( Work const & work ) {
   return timeOn( CLOCK_MONOTONIC, work );
}

// The median of `values`, which is not empty.
inline double medianOf( std::vector< double > values ) {
   auto const middle = values.begin() + static_cast< std::ptrdiff_t >( values.size() / 2 );
   std::nth_element( values.begin(), middle, values.end() );
   return *middle;
}

// The value that 99 of 100 of `values`, which is not empty, do not exceed.
inline double percentile99Of( std::vector< double > values ) {
   auto const place = values.begin() + static_cast< std::ptrdiff_t >( values.size() * 99 / 100 );
   std::nth_element( values.begin(), place, values.end() );
   return *place;
}

// Reports the result of a benchmark and its upper bound, for bench/report.
inline void reportBound( benchmark::State & state, double found, double bound ) {
   state.counters[ "found" ] = found;
   state.counters[ "bound" ] = bound;
}

class Paired {
 public:
   // One call of `subject` handles `subjectItems` items, one of `bare` handles `bareItems`. Times are
   // reported per item.
   Paired( U32 subjectItems, U32 bareItems ) noexcept
       : subjectItems_( subjectItems ), bareItems_( bareItems ) {}

   // Times one call of each; which runs first alternates.
   template < class Subject, class Bare >
   void turn( benchmark::State & state, Subject const & subject, Bare const & bare ) {
      bool const subjectFirst = subject_.size() % 2 == 0;
      double bareTime = subjectFirst ? 0 : timeOf( bare );
      auto const subjectTime = timeOf( subject );
      if ( subjectFirst ) {
         bareTime = timeOf( bare );
      }
      turnIs( state, subjectTime, bareTime );
   }

   // Adds one pair that the caller timed, in nanoseconds.
   void turnIs( benchmark::State & state, double subjectTime, double bareTime ) {
      subject_.push_back( subjectTime / subjectItems_ );
      bare_.push_back( bareTime / bareItems_ );
      state.SetIterationTime( subjectTime / 1e9 );
   }

   // Reports the medians per item and their ratio, whose upper bound is `bound`, if it has one.
   void report( benchmark::State & state, std::optional< double > bound ) const {
      auto const subject = medianOf( subject_ );
      auto const bare = medianOf( bare_ );
      state.counters[ "ns" ] = subject;
      state.counters[ "bareNs" ] = bare;
      state.counters[ "found" ] = subject / bare;
      if ( bound ) {
         state.counters[ "bound" ] = *bound;
      }
   }

 private:
   U32 const subjectItems_;
   U32 const bareItems_;
   std::vector< double > subject_;
   std::vector< double > bare_;
};

} // namespace Valen::Bench
