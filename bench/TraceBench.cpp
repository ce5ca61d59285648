// The cost of a trace point: disabled, and enabled with both outputs.
#include "Paired.h"
#include "platform/corvid/IntfId.h"
#include "platform/trace/Blipline.h"
#include "platform/trace/Trace.h"

#include <cstdio>

namespace {

using namespace Valen::Bench;

QUILL_TRACE_UNIT( "TraceBench" )

constexpr U32 lines = 10'000; // per turn
constexpr char const * signature =
   "void Valen::VrfContainerSm::handleIntf(Quill::Ptr<Valen::Intf>)";

// The entry trace that every handler of the library has.
[[gnu::noinline]] void handleIntf( Corvid::IntfId const & intfId, U32 count ) {
   TRACE0( "%s, %s messages", intfId, count );
}

// Discards the line.
class NullSink final : public Quill::TraceSink {
 public:
   void line( Quill::TraceLine const & line ) noexcept override {
      benchmark::DoNotOptimize( line.text.data() );
   }
};

// Enables both outputs while it exists.
class BothOutputs {
 public:
   BothOutputs() {
      Blipline::ringIs( &ring_ );
      Quill::traceSinkIs( &sink_ );
      Quill::traceLevelsIs( "*/0-1" );
   }
   ~BothOutputs() {
      Quill::traceLevelsIs( "" );
      Quill::traceSinkIs( nullptr );
      Blipline::ringIs( nullptr );
   }
   BothOutputs( BothOutputs const & ) = delete;
   BothOutputs & operator=( BothOutputs const & ) = delete;

 private:
   std::vector< std::byte > memory_ = std::vector< std::byte >( 4 << 20 );
   Blipline::Ring ring_{ memory_ };
   NullSink sink_;
};

template < class Work > void repeat( Work const & work ) {
   for ( U32 i = 0; i < lines; ++i ) {
      work();
   }
}

// What a trace point adds to a loop that does nothing else.
void traceOff( benchmark::State & state ) {
   Corvid::IntfId const intfId( "Ethernet3/1" );
   std::vector< double > with;
   std::vector< double > without;
   for ( auto _ : state ) {
      with.push_back( timeOf( [ & ] {
         repeat( [ & ] {
            benchmark::DoNotOptimize( &intfId );
            TRACE0( "%s, %s messages", intfId, 3u );
            benchmark::ClobberMemory();
         } );
      } ) );
      without.push_back( timeOf( [ & ] {
         repeat( [ & ] {
            benchmark::DoNotOptimize( &intfId );
            benchmark::ClobberMemory();
         } );
      } ) );
      state.SetIterationTime( with.back() / 1e9 );
   }
   reportBound( state, ( medianOf( with ) - medianOf( without ) ) / lines, 1.0 );
}
BENCHMARK( traceOff )->Name( "trace point off, ns" )->UseManualTime();

void traceOn( benchmark::State & state ) {
   BothOutputs const outputs;
   Corvid::IntfId const intfId( "Ethernet3/1" );
   auto const traced = [ & ] { repeat( [ & ] { handleIntf( intfId, 3 ); } ); };
   auto const printed = [ & ] {
      repeat( [ & ] {
         char line[ 1024 ];
         std::snprintf( line, sizeof line, "%s: %s, %u messages", signature, "Ethernet3/1", 3u );
         benchmark::DoNotOptimize( line );
      } );
   };
   Paired paired( lines, lines );
   for ( auto _ : state ) {
      paired.turn( state, traced, printed );
   }
   paired.report( state, 0.75 );
}
BENCHMARK( traceOn )->Name( "trace line on both outputs, by snprintf" )->UseManualTime();

} // namespace
