// Sends the frames of one interface through outputMessages again and again. bench/syscalls counts its
// system calls.
//   bench_sender BURSTS PACKETS BYTES
#include "OutputRig.h"
#include "ProductionTrace.h"

#include <exception>
#include <iostream>
#include <string>

int main( int argc, char ** argv ) {
   if ( argc != 4 ) {
      std::cerr << "usage: bench_sender BURSTS PACKETS BYTES\n";
      return 2;
   }
   try {
      Valen::Bench::ProductionTrace const trace;
      Valen::Bench::OutputRig rig( static_cast< U32 >( std::stoul( argv[ 2 ] ) ),
                                   std::stoul( argv[ 3 ] ) );
      for ( auto bursts = std::stoul( argv[ 1 ] ); bursts > 0; --bursts ) {
         rig.output();
      }
   } catch ( std::exception const & exception ) {
      std::cerr << "bench_sender: " << exception.what() << "\n";
      return 1;
   }
}
