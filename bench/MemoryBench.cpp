// The heap memory of an interface; frequent operations must not allocate.
#include "Allocations.h"
#include "OutputRig.h"
#include "Paired.h"
#include "ProductionTrace.h"
#include "Store.h"
#include "platform/trace/Trace.h"

namespace Valen::Bench {

namespace {

QUILL_TRACE_UNIT( "MemoryBench" )

constexpr U32 intfs = 10'000;

struct HeapBytes {
   double all;
   double ofLibrary;
};

HeapBytes heapBytesPerInterface() {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   auto const before = heapBytes();
   Store store( { .intfs = intfs, .agents = 2, .texts = 1 } );
   auto const filled = heapBytes();
   store.start();
   auto const after = heapBytes();
   return { static_cast< double >( after - before ) / intfs,
            static_cast< double >( after - filled ) / intfs };
}

// Measured once: the pool keeps the memory of the first store, and a second one would seem to need little.
// Of the library, in bytes: 712 in its five reactors of an interface, with their seven watches; 288 in three
// entities; 160 in the timer and its name; 200 in the elements of collections, and 288 in 11 indexes. Of the
// store: 560 in seven entities, 290 in names, frames and their queues, 64 in elements, 183 in 7 indexes.
constexpr double heapBound = 2900;

void heapPerInterface( benchmark::State & state ) {
   static auto const bytes = heapBytesPerInterface();
   for ( auto _ : state ) {
   }
   state.counters[ "ofLibrary" ] = bytes.ofLibrary;
   reportBound( state, bytes.all, heapBound );
   state.SetLabel( "heap bytes per interface, of 10,000 with 2 messages, all objects counted" );
}

// Allocations in one call of `work`, after enough calls to fill its pools.
template < class Work >
void noAllocations( benchmark::State & state, char const * label, Work const & work ) {
   for ( int i = 0; i < 3; ++i ) {
      work();
   }
   auto const before = allocations();
   U64 calls = 0;
   for ( auto _ : state ) {
      work();
      ++calls;
   }
   auto const made = allocations() - before;
   reportBound( state, static_cast< double >( made ) / static_cast< double >( calls ), 0 );
   state.SetLabel( label );
}

class Watcher final : public Quill::Reactor {
 public:
   explicit Watcher( Quill::Ptr< Interface::IntfConfig > intfConfig )
       : intfConfig_( *this, std::move( intfConfig ) ) {}
   char const * reactorName() const noexcept override { return "Watcher"; }
   void handle() { ++calls_; }

 private:
   U64 calls_ = 0;
   Quill::Watch< Watcher, Interface::IntfConfig,
                 Quill::On< Interface::IntfConfig::adminShutdownDelayedAttr, &Watcher::handle > >
      intfConfig_;
};

void allocationsPerNotification( benchmark::State & state ) {
   auto const intfConfig = Quill::make< Interface::IntfConfig >( "Ethernet1" );
   auto const watcher = Quill::make< Watcher >( intfConfig );
   noAllocations( state, "allocations per notification", [ & ] {
      intfConfig->adminShutdownDelayedIs( !intfConfig->adminShutdownDelayed() );
   } );
}

void allocationsPerTraceLine( benchmark::State & state ) {
   ProductionTrace const trace;
   Corvid::IntfId const intfId( "Ethernet1" );
   noAllocations( state, "allocations per trace line",
                  [ & ] { TRACE0( "%s, number %s", intfId, 7 ); } );
}

void allocationsPerTimer( benchmark::State & state ) {
   auto const scheduler = Gantry::TaskSchedulerRoot::findOrCreateScheduler();
   auto const task =
      Quill::make< Gantry::TimerTask >( scheduler, Gantry::TaskPriority::library, "bench" );
   noAllocations( state, "allocations per armed timer", [ & ] {
      task->scheduleTaskDelay( 60 );
      task->unscheduleTask();
   } );
}

// A whole shutdown of one interface: two changes of a flag, ten packets, one timer, and the trace.
void allocationsPerShutdown( benchmark::State & state ) {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   Store store( { .texts = 10 } );
   store.start();
   noAllocations( state, "allocations per shutdown and enable of an interface, 10 packets", [ & ] {
      store.shutdownAll();
      store.enableAll();
   } );
}

void allocationsPerPacket( benchmark::State & state ) {
   makeVethPair();
   ProductionTrace const trace;
   OutputRig rig( 100, 64 );
   noAllocations( state, "allocations per burst of 100 packets on a real endpoint",
                  [ & ] { rig.output(); } );
}

BENCHMARK( heapPerInterface )->Iterations( 1 );
BENCHMARK( allocationsPerNotification )->Iterations( 10'000 );
BENCHMARK( allocationsPerTraceLine )->Iterations( 10'000 );
BENCHMARK( allocationsPerTimer )->Iterations( 10'000 );
BENCHMARK( allocationsPerShutdown )->Iterations( 1'000 );
BENCHMARK( allocationsPerPacket )->Iterations( 100 );

} // namespace
} // namespace Valen::Bench
