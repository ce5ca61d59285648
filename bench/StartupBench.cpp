// Enables and disables the delay with a full store, and removes VRFs one by one.
#include "Devices.h"
#include "Paired.h"
#include "ProductionTrace.h"
#include "Store.h"
#include "linux/PacketEndpoint.h"

#include <vector>

namespace Valen::Bench {

namespace {

constexpr U32 many = 10'000;
constexpr U32 few = 1'000;
constexpr U32 vrfs = 10;

// Starts and stops both stores in turn; `timed` selects what is measured.
template < class Timed > void growth( benchmark::State & state, Timed const & timed ) {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   Store large( { .intfs = many, .vrfs = vrfs } );
   Store small( { .intfs = few, .vrfs = vrfs } );
   Paired paired( many, few );
   for ( auto _ : state ) {
      auto const largeTime = timed( large );
      paired.turnIs( state, largeTime, timed( small ) );
   }
   paired.report( state, 1.3 );
}

void startupGrowth( benchmark::State & state ) {
   growth( state, []( Store & store ) {
      auto const time = timeOf( [ & ] { store.start(); } );
      store.stop();
      return time;
   } );
   state.SetLabel( "start-up replay per interface, of 10,000 / of 1,000" );
}

void startupTime( benchmark::State & state ) {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   Store store( { .intfs = many, .vrfs = vrfs } );
   std::vector< double > times;
   for ( auto _ : state ) {
      times.push_back( timeOf( [ & ] { store.start(); } ) );
      store.stop();
      state.SetIterationTime( times.back() / 1e9 );
   }
   reportBound( state, medianOf( times ) / many / 1e3, 5 );
   state.SetLabel( "us of the start-up replay per interface, of 10,000" );
}

void teardownGrowth( benchmark::State & state ) {
   growth( state, []( Store & store ) {
      store.start();
      return timeOf( [ & ] { store.stop(); } );
   } );
   state.SetLabel( "teardown per interface, of 10,000 / of 1,000" );
}

constexpr U32 manyVrfs = 4'000;

// Every VRF has an interface, its own namespace name, and a packet socket.
class ManyVrfs {
 public:
   ManyVrfs() : old_( Corvid::rawTxPamProviderIs( &endpoints_ ) ) {
      static bool const made = ( makeNamespaceNames( manyVrfs ), true );
      (void)made;
      store_.start();
   }
   ~ManyVrfs() { Corvid::rawTxPamProviderIs( old_ ); }
   ManyVrfs( ManyVrfs const & ) = delete;
   ManyVrfs & operator=( ManyVrfs const & ) = delete;

   Store & store() noexcept { return store_; }

 private:
   ProductionTrace const trace_;
   Linux::PacketEndpointProvider endpoints_;
   Corvid::RawTxPamProvider * const old_;
   Store store_{ { .intfs = manyVrfs, .vrfs = manyVrfs } };
};

void vrfTeardown( benchmark::State & state ) {
   std::vector< double > times;
   for ( auto _ : state ) {
      ManyVrfs all;
      double total = 0;
      for ( U32 i = 0; i < manyVrfs; ++i ) {
         times.push_back( wallTimeOf( [ & ] { all.store().vrfDel( i ); } ) );
         total += times.back();
      }
      state.SetIterationTime( total / 1e9 );
   }
   state.counters[ "p99" ] = percentile99Of( times ) / 1e3;
   reportBound( state, medianOf( times ) / 1e3, 100 );
   state.SetLabel( "us that one VRF's teardown keeps the loop, of 4,000 with real endpoints" );
}

void allVrfsTeardown( benchmark::State & state ) {
   std::vector< double > times;
   for ( auto _ : state ) {
      ManyVrfs all;
      times.push_back( wallTimeOf( [ & ] { all.store().stop(); } ) );
      state.SetIterationTime( times.back() / 1e9 );
   }
   reportBound( state, medianOf( times ) / 1e9, 0.5 );
   state.SetLabel(
      "s that the teardown of 4,000 VRFs at once keeps the loop, with real endpoints" );
}

BENCHMARK( startupGrowth )->Iterations( 11 )->UseManualTime();
BENCHMARK( startupTime )->Iterations( 11 )->UseManualTime();
BENCHMARK( teardownGrowth )->Iterations( 11 )->UseManualTime();
BENCHMARK( vrfTeardown )->Iterations( 1 )->UseManualTime();
BENCHMARK( allVrfsTeardown )->Iterations( 1 )->UseManualTime();

} // namespace
} // namespace Valen::Bench
