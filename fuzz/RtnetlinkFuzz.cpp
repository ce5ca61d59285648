// Feeds any bytes to the rtnetlink parser. It must not read outside them, and must terminate.
#include "linux/Rtnetlink.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   using namespace Valen::Linux::Rtnetlink;
   Parser parser( { reinterpret_cast< std::byte const * >( data ), size } );
   Message message;
   std::size_t messages = 0;
   while ( parser.next( message ) ) {
      // Every message has at least the bytes of its header, and every name is inside the datagram.
      auto const * const name =
         reinterpret_cast< std::uint8_t const * >( message.deviceName.data() );
      bool const inside = message.deviceName.empty() ||
                          ( name >= data && name + message.deviceName.size() <= data + size );
      if ( ++messages > size / 16 || !inside ||
           message.deviceName.find( '\0' ) != message.deviceName.npos ) {
         std::abort();
      }
   }
   return 0;
}
