// Builds what the packet library has no layer for: fields in network order, and their checksum.
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

   // Puts `value` over the two bytes at `position`.
   Bytes & u16At( std::size_t position, unsigned value );

   std::size_t size() const { return bytes_.size(); }
   std::string const & view() const { return bytes_; }

 private:
   Bytes & number( U32 value, int length );
   Bytes & bytes( U8 const * begin, std::size_t count );

   std::string bytes_;
};

// The one's complement of the sum of all 16-bit words, RFC 1071; an odd last byte is padded. Over
// bytes whose checksum field is zero, it is that field's value.
U16 internetChecksum( std::string const & bytes );

// What IPv4 (RFC 793, 3.1) and IPv6 (RFC 8200, 8.1) have checksums cover in front of `length` bytes
// of the protocol.
std::string pseudoHeader( Ipv4 const & from, Ipv4 const & to, U8 protocol, std::size_t length );
std::string pseudoHeader( Ipv6 const & from, Ipv6 const & to, U8 protocol, std::size_t length );

} // namespace Goodbye
