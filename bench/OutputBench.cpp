// What the library adds to sending: the packets of one interface through outputMessages, compared to the
// same packets through sendto alone.
#include "OutputRig.h"
#include "Paired.h"
#include "ProductionTrace.h"

namespace Valen::Bench {

namespace {

constexpr U32 texts = 100;

void outputPerPacket( benchmark::State & state ) {
   makeVethPair();
   ProductionTrace const trace;
   OutputRig rig( texts, static_cast< std::size_t >( state.range( 0 ) ) );
   Paired paired( texts, texts );
   for ( auto _ : state ) {
      paired.turn(
         state, [ & ] { rig.output(); }, [ & ] { rig.outputBare(); } );
   }
   paired.report( state, 1.05 );
   state.SetLabel( "outputMessages per packet of " + std::to_string( state.range( 0 ) ) +
                   " B over veth / bare sendto" );
}

BENCHMARK( outputPerPacket )->Arg( 64 )->Arg( 1500 )->Iterations( 500 )->UseManualTime();

} // namespace
} // namespace Valen::Bench
