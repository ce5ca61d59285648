#include "derivation/IpOptions.h"

#include <algorithm>

namespace Derivation {

namespace {

// How many bytes are in an option: of IPv4 with its type and length, of IPv6 without.
struct Option {
   U8 type;
   U8 least, most;
};
constexpr U8 any = 255;

// RFC 791, 3.1.
constexpr Option ipv4Options[] = {
   { 11, 4, 4 },                  // a path's MTU, and the answer (RFC 1063)
   { 12, 4, 4 },    { 25, 8, 8 }, // a start at a high rate (RFC 4782, 3.1)
   { 82, 12, 12 },                // a trace (RFC 1393)
   { 7, 3, any },                 // the route to record
   { 68, 4, any },                // timestamps
   { 130, 3, any },               // security (RFC 1108)
   { 131, 3, any },               // the route to take, loosely
   { 136, 4, 4 },                 // a stream
   { 137, 3, any },               // strictly
   { 148, 4, 4 },                 // an alert for routers (RFC 2113)
};

constexpr Option hopByHopOptions[] = {
   { 4, 1, 1 },    // a limit of encapsulation (RFC 2473, 4.1.1)
   { 5, 2, 2 },    // an alert for routers (RFC 2711)
   { 7, 8, any },  // security (RFC 5570, 5.1)
   { 15, 10, 10 }, // metrics (RFC 8250, 3.2)
   { 38, 6, 6 },   // a start at a high rate (RFC 4782, 3.2)
   { 48, 4, 4 },   // the path's MTU (RFC 9268, 5)
};

template < std::size_t count >
void verifyLength( Option const ( &options )[ count ], U8 type, std::size_t length ) {
   auto const * const found =
      std::find_if( std::begin( options ), std::end( options ),
                    [ & ]( auto const & option ) { return option.type == type; } );
   require( found == std::end( options ) || ( length >= found->least && length <= found->most ),
            Reason::badLength );
}

} // namespace

void verifyIpv4Options( Reader options ) {
   enum Type : U8 { end = 0, nothing = 1 };
   constexpr std::size_t headBytes = 2;
   while ( !options.atEnd() ) {
      auto const type = options.u8();
      if ( type == end ) {
         return; // padding follows
      }
      if ( type == nothing ) {
         continue;
      }
      std::size_t const length = options.u8();
      require( length >= headBytes, Reason::badLength );
      verifyLength( ipv4Options, type, length );
      options.part( length - headBytes, Reason::tlvBeyondEnd );
   }
}

void verifyHopByHopOptions( Reader options ) {
   constexpr U8 onePad = 0;
   constexpr U8 elseDrop = 0xc0; // what to do if the option is unknown
   while ( !options.atEnd() ) {
      auto const type = options.u8();
      if ( type == onePad ) {
         continue;
      }
      std::size_t const length = options.u8();
      options.part( length, Reason::tlvBeyondEnd );
      verifyLength( hopByHopOptions, type, length );
      require( ( type & elseDrop ) == 0, Reason::badValue );
   }
}

} // namespace Derivation
