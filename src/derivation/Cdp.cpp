#include "derivation/Cdp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

#include <algorithm>
#include <array>

namespace Derivation {

namespace {

enum Type : U16 { deviceId = 1, portId = 3 };

// The bytes that a value has at least, of types whose values are numbers.
std::size_t leastBytes( U16 type ) {
   enum NumberType : U16 {
      capabilities = 4,
      nativeVlan = 10,
      duplex = 11,
      voiceVlanQuery = 15,
      power = 16,
      mtu = 17,
      trust = 18,
      untrustedPriority = 19,
   };
   switch ( type ) {
   case capabilities:
   case mtu:
      return 4;
   case voiceVlanQuery: // a byte before the VLAN
      return 3;
   case nativeVlan:
   case power:
      return 2;
   case duplex:
   case trust:
   case untrustedPriority:
      return 1;
   default:
      return 0;
   }
}

// What a message of an odd number of bytes ends with in its checksum. Receivers expect the first; the others
// are those of senders that are not exact, or follow RFC 1071.
enum class OddByte { signedWord, word, padded };

U16 checksumOf( std::string_view message, OddByte odd ) {
   if ( message.size() % 2 == 0 ) {
      return internetChecksum( { message } );
   }
   std::string last{ '\0', message.back() };
   if ( odd == OddByte::padded ) {
      std::swap( last[ 0 ], last[ 1 ] );
   } else if ( odd == OddByte::signedWord && ( u8At( last, 1 ) & 0x80 ) != 0 ) {
      // The original adds the byte with its sign, and so the sum is less by one.
      putNumber( last, 0, 2, 0xff00U + u8At( last, 1 ) - 1 );
   }
   return internetChecksum( { message.substr( 0, message.size() - 1 ), last } );
}

// The message with the checksum of zero, and what it ends with.
OddByte requireCorrect( std::string_view message, U16 checksum ) {
   constexpr std::array all{ OddByte::signedWord, OddByte::word, OddByte::padded };
   auto const * const found = std::find_if( all.begin(), all.end(), [ & ]( OddByte odd ) {
      return checksumOf( message, odd ) == checksum;
   } );
   require( found != all.end(), Reason::badChecksum );
   return *found;
}

std::string speakerOf( Reader & message ) {
   constexpr std::size_t headBytes = 4;
   std::string device, port;
   while ( !message.atEnd() ) {
      auto const type = message.u16();
      std::size_t const length = message.u16();
      require( length >= headBytes + leastBytes( type ), Reason::badLength );
      auto value = message.part( length - headBytes, Reason::tlvBeyondEnd );
      auto const text = value.bytes( value.left() );
      if ( type == deviceId ) {
         device = nameText( text );
      } else if ( type == portId ) {
         port = nameText( text );
      }
   }
   require( !device.empty() && !port.empty(), Reason::tlvMissing );
   return "device " + device + ", port " + port;
}

} // namespace

std::optional< Heard > cdp( Packet const & packet ) {
   constexpr std::size_t checksumAt = 2;
   auto reader = packet.message();
   std::string message( packet.message().bytes( reader.left() ) );
   auto const version = reader.u8();
   auto const ttlAt = reader.at();
   auto const ttl = reader.u8();
   auto const checksum = reader.u16();
   require( version == 1 || version == 2, Reason::badVersion );
   Heard heard;
   heard.speaker = speakerOf( reader );
   putNumber( message, checksumAt, 2, 0 );
   auto const odd = requireCorrect( message, checksum );

   heard.says = valueText( "ttl", ttl );
   heard.holdTime = std::chrono::seconds( ttl );
   heard.leaves = ttl == 0;
   if ( !heard.leaves ) {
      putNumber( message, ttlAt - packet.layers.message, 1, 0 );
      Editor editor( packet );
      editor.u8( ttlAt, 0 );
      editor.u16( packet.layers.message + checksumAt, checksumOf( message, odd ) );
      editor.finish( heard );
      heard.change = changeText( "ttl", ttl, 0 );
   }
   return heard;
}

} // namespace Derivation
