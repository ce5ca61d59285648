// Does one operation on all interfaces of a store, again and again. bench/cache_misses counts the cache
// lines that it touches.
//   bench_touched start|stop|shutdown INTERFACES TIMES
#include "ProductionTrace.h"
#include "Store.h"

#include <exception>
#include <iostream>
#include <string>

namespace Valen::Bench {

namespace {

void touch( std::string const & operation, U32 intfs, unsigned long times ) {
   ProductionTrace const trace;
   DroppingEndpoints const endpoints;
   Store store( { .intfs = intfs } );
   if ( operation == "shutdown" ) {
      store.start();
   }
   for ( ; times > 0; --times ) {
      if ( operation == "shutdown" ) {
         store.shutdownAll();
         store.enableAll();
      } else {
         store.start();
         store.stop();
      }
   }
}

} // namespace
} // namespace Valen::Bench

int main( int argc, char ** argv ) {
   if ( argc != 4 ) {
      std::cerr << "usage: bench_touched start|stop|shutdown INTERFACES TIMES\n";
      return 2;
   }
   try {
      Valen::Bench::touch( argv[ 1 ], static_cast< U32 >( std::stoul( argv[ 2 ] ) ),
                           std::stoul( argv[ 3 ] ) );
   } catch ( std::exception const & exception ) {
      std::cerr << "bench_touched: " << exception.what() << "\n";
      return 1;
   }
}
