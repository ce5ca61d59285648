// The event loop sets the kernel's timer at most once a turn, regardless of how many tasks change.
#include "Paired.h"
#include "linux/EventLoop.h"
#include "platform/gantry/Timer.h"

#include <random>

using namespace std::chrono_literals;

namespace Valen::Bench {

namespace {

// Each timer restarts itself and another timer when it runs.
void timerSettingsPerTurn( benchmark::State & state ) {
   Linux::EventLoop loop;
   std::mt19937 random( 1 );
   auto const delay = [ & ] { return std::chrono::microseconds( random() % 2'000 ); };
   std::vector< std::unique_ptr< Gantry::Timer > > timers;
   for ( std::size_t i = 0; i < 1'000; ++i ) {
      timers.push_back( std::make_unique< Gantry::Timer >( loop.scheduler(), "bench", [ &, i ] {
         timers[ i ]->start( delay() );
         timers[ random() % timers.size() ]->start( delay() );
      } ) );
      timers.back()->start( delay() );
   }
   double most = 0;
   for ( auto _ : state ) {
      auto const before = loop.timerSettings();
      loop.turn( 1s );
      most = std::max( most, static_cast< double >( loop.timerSettings() - before ) );
   }
   reportBound( state, most, 1 );
   state.SetLabel( "most timerfd_settime calls in one of 10,000 turns, 1,000 restarting timers" );
}

BENCHMARK( timerSettingsPerTurn )->Iterations( 10'000 );

} // namespace
} // namespace Valen::Bench
