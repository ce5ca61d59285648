// The Internet checksum (RFC 1071), in a packet.
#pragma once

#include "derivation/Layers.h"

#include <initializer_list>

namespace Derivation {

// The one's complement sum of all 16-bit words of the parts. An odd last byte of a part is padded.
U16 onesSum( std::initializer_list< std::string_view > parts );

// The value of the checksum field of the parts, in which it is zero.
inline U16 internetChecksum( std::initializer_list< std::string_view > parts ) {
   return static_cast< U16 >( ~onesSum( parts ) );
}

// The pseudo header for a checksum over IP (RFC 793, 3.1; RFC 8200, 8.1), for `length` bytes of the packet's
// protocol.
std::string pseudoHeader( Packet const & packet, std::size_t length );

// What a checksum covers.
struct Checksum {
   std::size_t at = 0; // the field, among the covered bytes
   std::size_t begin = 0;
   std::size_t end = 0;
   bool pseudoHeader = false; // and a pseudo header for them
   // Bytes among them that it does not cover; both are even numbers, counted from `begin`.
   std::size_t hole = 0;
   std::size_t holeBytes = 0;
};

// Throws Refused if it is wrong, or if it covers bytes beyond the end.
void requireCorrect( Packet const & packet, Checksum const & checksum );

bool isCorrect( Packet const & packet, Checksum const & checksum );

// Sets the field to the correct checksum.
void putChecksum( Packet & packet, Checksum const & checksum );

} // namespace Derivation
