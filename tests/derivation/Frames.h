// Builds frames byte by byte, and shows what is derived from them.
#pragma once

#include "derivation/Derive.h"
#include "platform/quill/Int.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Derivation::Test {

// "0180 c2" and so on; a "." stands for a zero byte.
inline std::string hex( std::string_view text ) {
   std::string bytes;
   std::string digits;
   for ( char const c : text ) {
      if ( c == '.' ) {
         bytes += '\0';
      } else if ( c != ' ' ) {
         digits += c;
      }
      if ( digits.size() == 2 ) {
         bytes += static_cast< char >( std::stoi( digits, nullptr, 16 ) );
         digits.clear();
      }
   }
   EXPECT_EQ( digits, "" ) << text;
   return bytes;
}

inline std::string number( std::size_t value, std::size_t bytes ) {
   std::string text( bytes, '\0' );
   for ( ; bytes > 0; value >>= 8 ) {
      text[ --bytes ] = static_cast< char >( value );
   }
   return text;
}

inline std::string u16( std::size_t value ) {
   return number( value, 2 );
}

// Of RFC 1071, over bytes with a field of zero.
inline std::string checksum( std::string bytes ) {
   U64 sum = 0;
   bytes.resize( ( bytes.size() + 1 ) / 2 * 2 );
   for ( std::size_t i = 0; i < bytes.size(); i += 2 ) {
      sum += static_cast< U8 >( bytes[ i ] ) * 256U + static_cast< U8 >( bytes[ i + 1 ] );
   }
   while ( sum >> 16 != 0 ) {
      sum = ( sum >> 16 ) + ( sum & 0xffff );
   }
   return u16( ~sum & 0xffff );
}

inline std::string patched( std::string frame, std::size_t at, std::string const & bytes ) {
   EXPECT_LE( at + bytes.size(), frame.size() );
   return frame.replace( at, bytes.size(), bytes );
}

// `message` with its checksum at that position, over `before` as well.
inline std::string summed( std::string const & message, std::size_t at,
                           std::string const & before = "" ) {
   return patched( message, at, checksum( before + patched( message, at, u16( 0 ) ) ) );
}

inline std::string const sourceMac = hex( "02....01" );

inline std::string ethernet( std::string const & destination, std::size_t type,
                             std::string const & payload ) {
   return hex( destination ) + sourceMac + u16( type ) + payload;
}

// With an IEEE 802.3 length instead of a type.
inline std::string llc( std::string const & destination, std::string const & payload ) {
   return ethernet( destination, payload.size(), payload );
}

inline std::string tagged( std::string frame, std::string const & tag = "8100 2005" ) {
   return frame.insert( 12, hex( tag ) );
}

// Addresses and payload of an IP packet.
struct Ip {
   std::string source, destination;
   U8 protocol = 0;
   std::string payload = {};
   U8 hopLimit = 255;
   std::string options = {}; // IPv4 options, or an IPv6 hop-by-hop header without its first byte
};

inline std::string pseudoHeader( Ip const & ip ) {
   auto const addresses = hex( ip.source ) + hex( ip.destination );
   return addresses + number( ip.protocol, addresses.size() == 8 ? 2 : 4 ) +
          number( ip.payload.size(), addresses.size() == 8 ? 2 : 4 );
}

inline std::string ipv4( Ip const & ip ) {
   auto const words = 5 + ip.options.size() / 4;
   auto const header = number( 0x40 + words, 1 ) + hex( "c0" ) +
                       u16( 4 * words + ip.payload.size() ) + hex( "...." ) +
                       number( ip.hopLimit, 1 ) + number( ip.protocol, 1 ) + hex( ".." ) +
                       hex( ip.source ) + hex( ip.destination ) + ip.options;
   return ethernet( "01005e..12", 0x0800, summed( header, 10 ) + ip.payload );
}

inline std::string ipv6( Ip const & ip ) {
   auto const next = ip.options.empty() ? "" : number( ip.protocol, 1 ) + ip.options;
   return ethernet( "3333...01", 0x86dd,
                    hex( "6c..." ) + u16( next.size() + ip.payload.size() ) +
                       number( next.empty() ? ip.protocol : 0, 1 ) + number( ip.hopLimit, 1 ) +
                       hex( ip.source ) + hex( ip.destination ) + next + ip.payload );
}

// A UDP message for an IP packet, with its checksum.
inline Ip udp( Ip ip, std::size_t port, std::string const & message ) {
   ip.protocol = 17;
   ip.payload = u16( port ) + u16( port ) + u16( 8 + message.size() ) + u16( 0 ) + message;
   ip.payload = summed( ip.payload, 6, pseudoHeader( ip ) );
   return ip;
}

inline Heard heardOf( std::string const & frame ) {
   auto const derived = derive( frame );
   if ( !derived ) {
      ADD_FAILURE() << "nothing was derived";
      return {};
   }
   if ( auto const * const malformed = std::get_if< Malformed >( &*derived ) ) {
      ADD_FAILURE() << malformed->protocol << ": " << malformed->reason;
      return {};
   }
   return std::get< Heard >( *derived );
}

// "lldp: the checksum is wrong"; "nothing" and "heard" if that was the result.
inline std::string refusalOf( std::string const & frame ) {
   auto const derived = derive( frame );
   if ( !derived ) {
      return "nothing";
   }
   auto const * const malformed = std::get_if< Malformed >( &*derived );
   return malformed != nullptr ? malformed->protocol + ": " + malformed->reason : "heard";
}

// The greeting with what the goodbye replaces taken from it.
inline std::string rebuilt( Heard const & heard ) {
   std::string frame;
   std::size_t from = 0, to = 0;
   for ( auto const & [ at, bytes, by ] : heard.replaced ) {
      EXPECT_GE( at, from );
      to += at - from;
      frame += heard.greeting.substr( from, at - from ) + heard.goodbye.substr( to, by );
      to += by;
      from = at + bytes;
   }
   return frame + heard.greeting.substr( from );
}

// What must hold for every frame of a protocol is tested with all samples. A test file has its own as
// static objects.
struct Sample {
   Sample( std::string name_, std::string frame_ )
       : name( std::move( name_ ) ), frame( std::move( frame_ ) ) {
      all().push_back( *this );
   }

   static std::vector< Sample > & all() {
      static std::vector< Sample > samples;
      return samples;
   }

   std::string name;
   std::string frame;
};

} // namespace Derivation::Test
