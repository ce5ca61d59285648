#include "derivation/IpOptions.h"

namespace Derivation {

void verifyIpv4Options( Reader options ) {
   enum Option : U8 { end = 0, nothing = 1, routerAlert = 148 };
   constexpr std::size_t headBytes = 2, routerAlertBytes = 4; // RFC 2113
   while ( !options.atEnd() ) {
      auto const type = options.u8();
      if ( type == end ) {
         return; // padding follows
      }
      if ( type == nothing ) {
         continue;
      }
      std::size_t const length = options.u8();
      require( length >= headBytes && ( type != routerAlert || length == routerAlertBytes ),
               Reason::badLength );
      options.part( length - headBytes, Reason::tlvBeyondEnd );
   }
}

void verifyHopByHopOptions( Reader options ) {
   enum Option : U8 { onePad = 0, routerAlert = 5 };
   constexpr std::size_t routerAlertBytes = 2; // RFC 2711
   constexpr U8 elseDrop = 0xc0;               // what to do if the option is unknown
   while ( !options.atEnd() ) {
      auto const type = options.u8();
      if ( type == onePad ) {
         continue;
      }
      auto const value = options.part( options.u8(), Reason::tlvBeyondEnd );
      require( type != routerAlert || value.left() == routerAlertBytes, Reason::badLength );
      require( ( type & elseDrop ) == 0, Reason::badValue );
   }
}

} // namespace Derivation
