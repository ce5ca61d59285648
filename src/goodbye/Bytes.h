// Builds messages that the packet library has no layer for: fields in network byte order, and checksums.
#pragma once

#include "goodbye/Addresses.h"

#include <string_view>

namespace Goodbye {

class Bytes {
 public:
   Bytes & u8( unsigned value ) { return number( value, 1 ); }
   Bytes & u16( unsigned value ) { return number( value, 2 ); }
   Bytes & u32( U32 value ) { return number( value, 4 ); }
   Bytes & text( std::string_view text );
   Bytes & zeros( std::size_t count );
   Bytes & mac( Mac const & mac ) { return bytes( mac.begin(), mac.size() ); }
   Bytes & ip( Ipv4 const & address );
   Bytes & ip( Ipv6 const & address ) { return bytes( address.begin(), Ipv6::address_size ); }

   // Overwrites the two bytes at `position` with `value`.
   Bytes & u16At( std::size_t position, unsigned value );

   std::size_t size() const { return bytes_.size(); }
   std::string const & view() const { return bytes_; }

 private:
   Bytes & number( U32 value, int length );
   Bytes & bytes( U8 const * begin, std::size_t count );

   std::string bytes_;
};

// The Internet checksum, RFC 1071: the one's complement of the sum of all 16-bit words; an odd last byte
// is padded. The result for bytes whose checksum field is zero is the value for that field.
U16 internetChecksum( std::string const & bytes );

// The pseudo header for checksums over IPv4 (RFC 793, 3.1) and IPv6 (RFC 8200, 8.1), for `length` bytes
// of the protocol.
std::string pseudoHeader( Ipv4 const & from, Ipv4 const & to, U8 protocol, std::size_t length );
std::string pseudoHeader( Ipv6 const & from, Ipv6 const & to, U8 protocol, std::size_t length );

} // namespace Goodbye
