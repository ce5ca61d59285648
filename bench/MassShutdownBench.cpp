// Shuts down all interfaces at once. Measures what the library adds to the sends themselves, and whether
// the cost of an interface grows with their number.
#include "Devices.h"
#include "Paired.h"
#include "ProductionTrace.h"
#include "Store.h"
#include "linux/PacketEndpoint.h"

#include <stdexcept>

namespace Valen::Bench {

namespace {

constexpr U32 many = 10'000;
constexpr U32 few = 100;

// Shuts all interfaces down and enables them again. Returns the time of the shutdown.
double shutdownTime( Store & store, U32 intfs ) {
   auto const time = timeOf( [ & ] { store.shutdownAll(); } );
   if ( store.delayed() != intfs ) {
      throw std::runtime_error( "not every shutdown is held" );
   }
   store.enableAll();
   return time;
}

void bareSends( Store const & store, BareSender const & sender, U32 intfs ) {
   for ( U32 i = 0; i < intfs; ++i ) {
      for ( auto const & text : store.message( i )->message() ) {
         sender.send( text.view(), store.ifIndex( i ) );
      }
   }
}

// What the kernel does besides: nothing of its own; IPv6 on each device; the same, with a full table.
enum class Beside : U8 { nothing, ipv6, routes };

void massShutdown( benchmark::State & state ) {
   auto const beside = static_cast< Beside >( state.range( 0 ) );
   makeDropDevices( many );
   ipv6Is( beside == Beside::nothing ? Ipv6::off : Ipv6::on );
   makeRoutes( beside == Beside::routes ? 100'000 : 0 );
   ProductionTrace const trace;
   Linux::PacketEndpointProvider endpoints;
   auto * const old = Corvid::rawTxPamProviderIs( &endpoints );
   {
      Store store( { .intfs = many, .realDevices = true } );
      store.start();
      BareSender const sender;
      Paired paired( many, many );
      for ( auto _ : state ) {
         auto const bare = timeOf( [ & ] { bareSends( store, sender, many ); } );
         paired.turnIs( state, shutdownTime( store, many ), bare );
      }
      auto const & counters = endpoints.endpoints().front()->counters();
      if ( counters.failed > 0 ) {
         throw std::runtime_error( std::to_string( counters.failed ) + " packets were refused" );
      }
      paired.report( state, 1.35 );
   }
   Corvid::rawTxPamProviderIs( old );
   static constexpr char const * texts[] = { "", ", IPv6 on", ", 100,000 IPv6 routes" };
   state.SetLabel( "mass shutdown of 10,000, 3 packets each, ifb" +
                   std::string( texts[ state.range( 0 ) ] ) + " / bare sendto" );
}

// Only the library's time: the endpoints drop the packets before any system call.
void massShutdownGrowth( benchmark::State & state ) {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   Store large( { .intfs = many } );
   Store small( { .intfs = few } );
   large.start();
   small.start();
   Paired paired( many, few );
   for ( auto _ : state ) {
      auto const largeTime = shutdownTime( large, many );
      std::vector< double > smallTimes; // for the same number of interfaces, with warm caches
      for ( U32 i = 0; i < many / few; ++i ) {
         smallTimes.push_back( shutdownTime( small, few ) );
      }
      paired.turnIs( state, largeTime, medianOf( smallTimes ) );
   }
   paired.report( state, 2 );
   state.SetLabel( "library's own time per interface, mass shutdown of 10,000 / of 100" );
}

BENCHMARK( massShutdown )->DenseRange( 0, 2 )->Iterations( 21 )->UseManualTime();
BENCHMARK( massShutdownGrowth )->Iterations( 21 )->UseManualTime();

} // namespace
} // namespace Valen::Bench
