#include "derivation/Eigrp.h"

#include "derivation/Editor.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

#include <algorithm>

namespace Derivation {

namespace {

constexpr U8 version = 2, hello = 5;
constexpr std::size_t coefficients = 5; // without K6
constexpr auto unused = '\xff';

struct Tlvs {
   std::optional< Reader > parameters; // K1 to K6 and the hold time
   std::optional< Reader > authentication;
};

// RFC 7868, 6.7.3. Some routers write the length once, before all addresses.
void verifyAddresses( Reader value, std::size_t addressBytes ) {
   auto addresses = value;
   require( addresses.u8() == addressBytes, Reason::badLength );
   if ( addresses.left() % addressBytes == 0 && !addresses.atEnd() ) {
      return;
   }
   while ( !value.atEnd() ) {
      require( value.u8() == addressBytes, Reason::badLength );
      value.skip( addressBytes );
   }
}

// As routers send it: the type and the size of the digest, the key, its sequence number, padding, and the digest.
void verifyAuthentication( Reader value ) {
   value.skip( 2 );
   auto const digestBytes = value.u16();
   value.skip( 4 + 4 + 8 );
   require( value.left() == digestBytes, Reason::badLength );
}

// Flags, how many bytes follow, and the topologies.
void verifyTopologies( Reader value ) {
   value.skip( 2 );
   auto const bytes = value.u16();
   require( bytes % 2 == 0 && bytes == value.left(), Reason::badLength );
}

// Of those that are not about routes (RFC 7868, 6.7).
void verify( U16 type, Reader value, std::size_t addressBytes ) {
   enum Type : U16 {
      parameters = 1,
      authentication,
      sequence,
      softwareVersion,
      multicastSequence,
      stub,
      peerTermination,
      topologies
   };
   switch ( type ) {
   case parameters:
      return require( value.left() == 8, Reason::badLength );
   case authentication:
      return verifyAuthentication( value );
   case sequence:
   case peerTermination:
      return verifyAddresses( value, addressBytes );
   case softwareVersion:
   case multicastSequence:
      return require( value.left() == 4, Reason::badLength );
   case stub:
      return require( value.left() >= 2, Reason::badLength );
   case topologies:
      return verifyTopologies( value );
   default:
      return;
   }
}

Tlvs tlvsOf( Reader message, std::size_t addressBytes ) {
   enum Type : U16 { parameters = 1, authentication = 2, firstRoute = 0xf0 };
   constexpr std::size_t headerBytes = 4;
   Tlvs found;
   while ( !message.atEnd() ) {
      auto const type = message.u16();
      std::size_t const length = message.u16();
      require( length >= headerBytes, Reason::badLength );
      auto const value = message.part( length - headerBytes, Reason::tlvBeyondEnd );
      require( type < firstRoute, Reason::tlvMissing );
      verify( type, value, addressBytes );
      if ( type == parameters ) {
         require( !found.parameters, Reason::tlvMissing );
         found.parameters = value;
      } else if ( type == authentication ) {
         found.authentication = value;
      }
   }
   return found;
}

std::string authenticatedWith( Reader authentication ) {
   enum Type : U16 { md5 = 2, sha256 = 3 };
   switch ( authentication.u16() ) {
   case md5:
      return "authenticated with MD5";
   case sha256:
      return "authenticated with HMAC-SHA-256";
   default:
      return "authenticated with an unknown algorithm";
   }
}

std::string coefficientsText( std::string_view values ) {
   std::string text = "K values ";
   for ( std::size_t i = 0; i < values.size(); ++i ) {
      text += ( i == 0 ? "" : "," ) + std::to_string( u8At( values, i ) );
   }
   return text;
}

} // namespace

std::optional< Heard > eigrp( Packet const & packet ) {
   constexpr std::chrono::seconds defaultHoldTime( 15 );
   auto message = packet.message();
   auto const begin = message.at();
   require( message.u8() == version, Reason::badVersion );
   auto const opcode = message.u8();
   message.skip( 2 + 4 + 4 ); // the checksum, the flags and the sequence number
   bool const acknowledges = message.u32() != 0;
   if ( opcode != hello || acknowledges ) {
      return std::nullopt;
   }
   // Without a pseudo header, over IPv6 as well.
   Checksum const checksum{ .at = begin + 2, .begin = begin, .end = packet.layers.end };
   requireCorrect( packet, checksum );
   message.skip( 2 ); // the virtual router
   Heard heard;
   heard.speaker = "router " + ipText( packet.source() );
   heard.part = partOf( packet, { "autonomous system " + std::to_string( message.u16() ) } );
   heard.holdTime = defaultHoldTime;

   auto const tlvs = tlvsOf( message, packet.source().size() );
   if ( tlvs.authentication ) {
      heard.whyNot = authenticatedWith( *tlvs.authentication );
   }
   if ( !tlvs.parameters ) {
      heard.says = "no K values";
      heard.whyNot = "without K values";
      return heard;
   }
   auto parameters = *tlvs.parameters;
   auto const at = parameters.at();
   auto const values = parameters.bytes( coefficients );
   parameters.skip( 1 ); // K6
   heard.holdTime = std::chrono::seconds( parameters.u16() );
   heard.says = coefficientsText( values );
   heard.leaves = std::all_of( values.begin(), values.end(), []( char k ) { return k == unused; } );
   if ( !heard.leaves && heard.whyNot.empty() ) {
      Editor editor( packet );
      for ( std::size_t i = 0; i < coefficients; ++i ) {
         editor.u8( at + i, static_cast< U8 >( unused ) );
      }
      editor.fixChecksum( checksum );
      editor.finish( heard );
      heard.change = heard.says + " -> 255";
   }
   return heard;
}

} // namespace Derivation
