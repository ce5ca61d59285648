#include "goodbye/Pcap.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

std::string pcapFile( std::vector< Frame > const & frames,
                      std::chrono::system_clock::time_point time ) {
   using std::chrono::microseconds;
   using std::chrono::seconds;
   constexpr U32 magic = 0xa1b2c3d4, snapLength = 262144, ethernet = 1;
   auto const sinceEpoch = time.time_since_epoch();
   auto const whole = std::chrono::duration_cast< seconds >( sinceEpoch );
   auto const rest = std::chrono::duration_cast< microseconds >( sinceEpoch - whole );
   Bytes file;
   file.u32( magic ).u16( 2 ).u16( 4 ).zeros( 4 + 4 ).u32( snapLength ).u32( ethernet );
   for ( auto const & frame : frames ) {
      auto const length = static_cast< U32 >( frame.size() );
      file.u32( static_cast< U32 >( whole.count() ) ).u32( static_cast< U32 >( rest.count() ) );
      file.u32( length ).u32( length ).text( frame );
   }
   return file.view();
}

} // namespace Goodbye
