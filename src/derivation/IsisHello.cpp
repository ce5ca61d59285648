#include "derivation/IsisHello.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr U8 discriminator = 0x83; // of the protocol
enum Pdu : U8 { lanLevel1 = 15, lanLevel2 = 16, pointToPoint = 17 };
// ISO 10589, 9.5; RFC 1195, RFC 5120, RFC 5303, RFC 5308, RFC 8202.
enum Type : U8 {
   areaAddresses = 1,
   neighbors = 6,
   instance = 7,
   authentication = 10,
   optionalChecksum = 12,
   ipv4Addresses = 132,
   topologies = 229,
   ipv6Addresses = 232,
   threeWay = 240
};
enum ThreeWayState : U8 { up = 0, initializing = 1, down = 2 };
constexpr U8 password = 1, hmacMd5 = 54; // types of authentication
constexpr std::size_t addressBytes = 6;  // of a neighbor on a LAN
constexpr std::size_t lanHeaderBytes = 27, pointToPointHeaderBytes = 20;

struct Hello {
   U8 pdu = 0;
   std::string_view system;
   std::chrono::seconds holdTime{};
   std::size_t lengthAt = 0; // of the PDU
   U16 length = 0;
   std::vector< Replaced > neighborLists; // to be left out
   std::size_t neighborCount = 0;
   std::optional< std::size_t > threeWayAt;
   U8 threeWayState = up;
   std::string whyNot;
};

// The header that all PDUs have; the type of the PDU.
U8 readCommon( Reader & pdu ) {
   constexpr U8 version = 1, typeMask = 0x1f, systemIdBytes = 6;
   require( pdu.u8() == discriminator, Reason::badValue );
   auto const headerBytes = pdu.u8();
   require( pdu.u8() == version, Reason::badVersion );
   auto const idBytes = pdu.u8();
   require( idBytes == 0 || idBytes == systemIdBytes, Reason::badValue );
   auto const type = static_cast< U8 >( pdu.u8() & typeMask );
   require( pdu.u8() == version, Reason::badVersion );
   pdu.skip( 2 ); // reserved, and the number of area addresses
   if ( type >= lanLevel1 && type <= pointToPoint ) {
      require( headerBytes == ( type == pointToPoint ? pointToPointHeaderBytes : lanHeaderBytes ),
               Reason::badLength );
   }
   return type;
}

std::string authenticationText( U8 type ) {
   return type == hmacMd5 ? "authenticated with MD5"
                          : "authenticated with type " + std::to_string( type );
}

void verifyAreas( Reader & value ) {
   constexpr std::size_t longest = 20;
   do {
      std::size_t const length = value.u8();
      require( length >= 1 && length <= longest, Reason::badLength );
      value.skip( length );
   } while ( !value.atEnd() );
}

// The state; then the own circuit, and the neighbor's system and circuit.
bool isThreeWayLength( std::size_t length ) {
   return length == 1 || length == 1 + 4 || length == 1 + 4 + 6 || length == 1 + 4 + 6 + 4;
}

void readTlv( U8 type, std::size_t at, Reader value, Hello & hello ) {
   auto const length = value.left();
   switch ( type ) {
   case Type::areaAddresses:
      verifyAreas( value );
      break;
   case Type::ipv4Addresses:
      require( length % 4 == 0, Reason::badLength );
      break;
   case Type::ipv6Addresses:
      require( length % 16 == 0, Reason::badLength );
      break;
   case Type::topologies:
      require( length % 2 == 0, Reason::badLength );
      break;
   case Type::instance: // and its topologies
      require( length >= 2 && length % 2 == 0, Reason::badLength );
      break;
   case Type::neighbors:
      require( length % addressBytes == 0, Reason::badLength );
      hello.neighborLists.push_back( { at, 2 + length, 0 } );
      hello.neighborCount += length / addressBytes;
      break;
   case Type::authentication:
      if ( auto const how = value.u8(); how != password ) {
         hello.whyNot = authenticationText( how );
      }
      break;
   case Type::optionalChecksum:
      require( length == 2, Reason::badLength );
      if ( value.u16() != 0 ) {
         hello.whyNot = "with a checksum of its own";
      }
      break;
   case Type::threeWay:
      require( !hello.threeWayAt, Reason::tlvMissing );
      require( isThreeWayLength( length ), Reason::badLength );
      hello.threeWayAt = value.at();
      hello.threeWayState = value.u8();
      require( hello.threeWayState <= down, Reason::badValue );
      break;
   default:
      break;
   }
}

void readTlvs( Reader & pdu, Hello & hello ) {
   while ( !pdu.atEnd() ) {
      auto const at = pdu.at();
      auto const type = pdu.u8();
      std::size_t const length = pdu.u8();
      readTlv( type, at, pdu.part( length, Reason::tlvBeyondEnd ), hello );
   }
}

Hello readHello( U8 type, Packet const & packet, Reader & pdu ) {
   Hello hello;
   hello.pdu = type;
   pdu.skip( 1 ); // the levels of the circuit
   hello.system = pdu.bytes( 6 );
   hello.holdTime = std::chrono::seconds( pdu.u16() );
   hello.lengthAt = pdu.at();
   hello.length = pdu.u16();
   require( hello.length == packet.layers.end - packet.layers.message, Reason::badLength );
   pdu.skip( type == pointToPoint ? 1 : 1 + 7 ); // the circuit; the priority and the LAN
   readTlvs( pdu, hello );
   return hello;
}

std::string systemText( std::string_view id ) {
   return hexText( id.substr( 0, 2 ) ) + "." + hexText( id.substr( 2, 2 ) ) + "." +
          hexText( id.substr( 4, 2 ) );
}

std::string stateText( U8 state ) {
   return state == up             ? "three-way state up"
          : state == initializing ? "three-way state initializing"
                                  : "three-way state down";
}

void deriveLan( Packet const & packet, Hello const & hello, Heard & heard ) {
   heard.says = countText( hello.neighborCount, "neighbor" );
   heard.leaves = hello.neighborCount == 0;
   if ( heard.leaves || !heard.whyNot.empty() ) {
      return;
   }
   Editor editor( packet );
   auto length = hello.length;
   for ( auto const & list : hello.neighborLists ) {
      editor.remove( list.at, list.bytes );
      length = static_cast< U16 >( length - list.bytes );
   }
   editor.u16( hello.lengthAt, length );
   editor.finish( heard );
   heard.change = heard.says + " -> " + countText( 0, "neighbor" );
}

void derivePointToPoint( Packet const & packet, Hello const & hello, Heard & heard ) {
   if ( !hello.threeWayAt ) {
      heard.says = "no three-way state";
      heard.whyNot = "its hello has no three-way state";
      return;
   }
   heard.says = stateText( hello.threeWayState );
   heard.leaves = hello.threeWayState == down;
   if ( heard.leaves || !heard.whyNot.empty() ) {
      return;
   }
   Editor editor( packet );
   editor.u8( *hello.threeWayAt, down );
   editor.finish( heard );
   heard.change = heard.says + " -> down";
}

} // namespace

std::optional< Heard > isisHello( Packet const & packet ) {
   auto pdu = packet.message();
   auto const type = readCommon( pdu );
   if ( type < lanLevel1 || type > pointToPoint ) {
      return std::nullopt;
   }
   auto const hello = readHello( type, packet, pdu );
   Heard heard;
   heard.speaker = "system " + systemText( hello.system ) +
                   ( type == pointToPoint ? ", point-to-point"
                     : type == lanLevel1  ? ", level 1"
                                          : ", level 2" );
   heard.holdTime = hello.holdTime;
   heard.whyNot = hello.whyNot;
   if ( type == pointToPoint ) {
      derivePointToPoint( packet, hello, heard );
   } else {
      deriveLan( packet, hello, heard );
   }
   if ( heard.leaves ) {
      heard.whyNot.clear();
   }
   return heard;
}

} // namespace Derivation
