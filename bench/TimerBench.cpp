// The cost of starting and stopping a timer among many others.
#include "Paired.h"
#include "platform/gantry/TaskScheduler.h"

#include <map>
#include <random>

namespace {

using namespace Valen::Bench;

constexpr U32 batch = 1'000;

// A clock that does not advance, so that reading the time costs nothing.
class StillClock final : public Gantry::Clock {
 public:
   Gantry::Time now() const noexcept override { return Gantry::Time( 1 ); }
};

class Scheduler final : public Gantry::TaskScheduler {
 public:
   using TaskScheduler::TaskScheduler;
};

// Delays of up to a minute, like configured ones.
std::vector< double > delays( std::size_t count ) {
   std::mt19937 random( 1 );
   std::vector< double > delays( count );
   for ( auto & delay : delays ) {
      delay = static_cast< double >( random() % 60'000 ) / 1e3;
   }
   return delays;
}

// `count` timers that are running, and some that are started and stopped.
class Timers {
 public:
   explicit Timers( U32 count ) : delays_( delays( count + batch ) ) {
      auto const scheduler = Quill::make< Scheduler >( clock_ );
      for ( U32 i = 0; i < count + batch; ++i ) {
         tasks_.push_back(
            Quill::make< Gantry::TimerTask >( scheduler, Gantry::TaskPriority::library, "delay" ) );
         if ( i < count ) {
            tasks_[ i ]->scheduleTaskDelay( delays_[ i ] );
         }
      }
   }
   ~Timers() {
      for ( auto const & task : tasks_ ) {
         task->unscheduleTask();
      }
   }
   Timers( Timers const & ) = delete;
   Timers & operator=( Timers const & ) = delete;

   void armAndCancel() {
      auto const first = tasks_.size() - batch;
      for ( auto i = first; i < tasks_.size(); ++i ) {
         tasks_[ i ]->scheduleTaskDelay( delays_[ i ] );
      }
      for ( auto i = first; i < tasks_.size(); ++i ) {
         tasks_[ i ]->unscheduleTask();
      }
   }

 private:
   StillClock clock_;
   std::vector< double > delays_;
   std::vector< Quill::Ptr< Gantry::TimerTask > > tasks_;
};

// The usual alternative.
class MappedTimers {
 public:
   explicit MappedTimers( U32 count ) : delays_( delays( count + batch ) ) {
      for ( U32 i = 0; i < count; ++i ) {
         map_.emplace( delays_[ i ], &map_ );
      }
      armed_.resize( batch );
   }
   void armAndCancel() {
      auto const first = delays_.size() - batch;
      for ( U32 i = 0; i < batch; ++i ) {
         armed_[ i ] = map_.emplace( delays_[ first + i ], &map_ );
      }
      for ( auto const & armed : armed_ ) {
         map_.erase( armed );
      }
   }

 private:
   using Map = std::multimap< double, void * >;
   Map map_;
   std::vector< double > delays_;
   std::vector< Map::iterator > armed_;
};

void timersAmongMany( benchmark::State & state ) {
   Timers many( 100'000 );
   Timers few( 10'000 );
   Paired paired( batch, batch );
   for ( auto _ : state ) {
      paired.turn(
         state, [ & ] { many.armAndCancel(); }, [ & ] { few.armAndCancel(); } );
   }
   paired.report( state, 1.2 );
}
BENCHMARK( timersAmongMany )
   ->Name( "arm and cancel among 100,000 timers, by 10,000" )
   ->UseManualTime();

void timersByMultimap( benchmark::State & state ) {
   Timers timers( static_cast< U32 >( state.range( 0 ) ) );
   MappedTimers mapped( static_cast< U32 >( state.range( 0 ) ) );
   Paired paired( batch, batch );
   for ( auto _ : state ) {
      paired.turn(
         state, [ & ] { timers.armAndCancel(); }, [ & ] { mapped.armAndCancel(); } );
   }
   paired.report( state, 0.35 );
}
BENCHMARK( timersByMultimap )
   ->Name( "arm and cancel, by std::multimap" )
   ->Arg( 10'000 )
   ->Arg( 100'000 )
   ->UseManualTime();

} // namespace
