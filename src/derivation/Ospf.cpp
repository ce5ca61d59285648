#include "derivation/Ospf.h"

#include "derivation/Authentication.h"
#include "derivation/Editor.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr std::size_t lengthAt = 2, checksumAt = 12; // in the packet
constexpr std::size_t neighborBytes = 4;

// Some bytes of the frame.
struct Range {
   std::size_t at = 0;
   std::size_t bytes = 0;
};

// A Hello of either version.
struct Hello {
   std::size_t begin = 0;
   Range neighbors{};
   Range signaling{}; // the LLS block, behind the packet
   // The byte of the options with the L bit, which says that there is such a block.
   std::size_t optionsAt = 0;
   U8 lBit = 0;
   Checksum checksum{};
};

// Whether it is a Hello. `message` becomes the whole packet without version and type, and `rest` what follows it.
bool beginsHello( Reader & message, Reader & rest, U8 version ) {
   enum Type : U8 { hello = 1, lastType = 5 };
   require( message.u8() == version, Reason::badVersion );
   auto const type = message.u8();
   require( type >= hello && type <= lastType, Reason::badValue );
   if ( type != hello ) {
      return false;
   }
   constexpr std::size_t read = 4;
   std::size_t const length = message.u16();
   require( length >= read, Reason::badLength );
   rest = message;
   message = rest.part( length - read );
   return true;
}

Range neighborsOf( Reader & hello ) {
   Range const neighbors{ hello.at(), hello.left() };
   require( neighbors.bytes % neighborBytes == 0, Reason::badLength );
   return neighbors;
}

// RFC 5613, 2.3 to 2.5.
void verifySignaling( Reader tlvs ) {
   enum Type : U16 { extendedOptions = 1, authentication = 2 };
   constexpr std::size_t word = 4;
   while ( !tlvs.atEnd() ) {
      auto const type = tlvs.u16();
      std::size_t const length = tlvs.u16();
      require( ( type != extendedOptions || length == 4 ) &&
                  ( type != authentication || length > 4 ),
               Reason::badLength );
      tlvs.part( ( length + word - 1 ) / word * word, Reason::tlvBeyondEnd );
   }
}

// RFC 5613, 2.2. In an authenticated packet, its checksum is not computed.
Range signalingOf( Packet const & packet, Reader & rest, bool authenticated ) {
   constexpr std::size_t headerBytes = 4, word = 4;
   auto const at = rest.at();
   auto block = rest;
   block.skip( 2 ); // the checksum
   auto const bytes = word * block.u16();
   require( bytes >= headerBytes, Reason::badLength );
   rest.skip( bytes );
   if ( !authenticated ) {
      requireCorrect( packet, { .at = at, .begin = at, .end = at + bytes } );
   }
   verifySignaling( block.part( bytes - headerBytes ) );
   return { at, bytes };
}

void deriveGoodbye( Packet const & packet, Hello const & hello, Heard & heard ) {
   constexpr char const * what = "neighbor";
   auto const count = hello.neighbors.bytes / neighborBytes;
   heard.says = countText( count, what );
   heard.leaves = count == 0;
   if ( heard.leaves || !heard.whyNot.empty() ) {
      return;
   }
   auto const length = u16At( packet.frame, hello.begin + lengthAt );
   Editor editor( packet );
   editor.u16( hello.begin + lengthAt, static_cast< U16 >( length - hello.neighbors.bytes ) );
   editor.remove( hello.neighbors.at, hello.neighbors.bytes );
   heard.change = heard.says + " -> " + countText( 0, what );
   if ( hello.signaling.bytes != 0 ) {
      auto const options = u8At( packet.frame, hello.optionsAt );
      editor.u8( hello.optionsAt, static_cast< U8 >( options & ~hello.lBit ) );
      editor.remove( hello.signaling.at, hello.signaling.bytes );
      heard.change += ", without link-local signaling";
   }
   editor.fixChecksum( hello.checksum );
   editor.finish( heard );
}

} // namespace

std::optional< Heard > ospf2( Packet const & packet ) {
   enum Authentication : U16 { none = 0, password = 1, digest = 2 };
   constexpr std::size_t authenticationAt = 16, authenticationBytes = 8;
   auto message = packet.message();
   auto rest = message;
   Hello hello{ .begin = message.at(), .lBit = 0x10 };
   if ( !beginsHello( message, rest, 2 ) ) {
      return std::nullopt;
   }
   Heard heard;
   heard.speaker = "router " + ipText( message.bytes( 4 ) );
   heard.part = partOf( packet );
   message.skip( 4 + 2 ); // the area and the checksum
   auto const authentication = message.u16();
   require( authentication <= digest, Reason::badValue );
   message.skip( 3 ); // of a digest: zeros and the id of the key
   auto const digestBytes = message.u8();
   message.skip( 4 + 4 + 2 ); // the sequence number, the mask and the interval
   hello.optionsAt = message.at();
   bool const signaling = ( message.u8() & hello.lBit ) != 0;
   message.skip( 1 ); // the priority
   heard.holdTime = std::chrono::seconds( message.u32() );
   message.skip( 4 + 4 ); // the designated router and its backup
   hello.neighbors = neighborsOf( message );
   hello.checksum = { .at = hello.begin + checksumAt,
                      .begin = hello.begin,
                      .end = message.at() + message.left(),
                      .hole = authenticationAt,
                      .holeBytes = authenticationBytes };

   if ( authentication == digest ) {
      rest.skip( digestBytes );
      heard.whyNot = authenticatedWith( digestBytes );
   } else {
      requireCorrect( packet, hello.checksum );
   }
   if ( signaling ) {
      hello.signaling = signalingOf( packet, rest, authentication == digest );
   }
   require( rest.atEnd(), Reason::badLength );
   deriveGoodbye( packet, hello, heard );
   return heard;
}

std::optional< Heard > ospf3( Packet const & packet ) {
   constexpr U8 atBit = 4; // RFC 7166: an authentication trailer follows
   auto message = packet.message();
   auto rest = message;
   Hello hello{ .begin = message.at(), .lBit = 2 };
   if ( !beginsHello( message, rest, 3 ) ) {
      return std::nullopt;
   }
   Heard heard;
   heard.speaker = "router " + ipText( message.bytes( 4 ) );
   heard.part = partOf( packet );
   message.skip( 4 + 2 ); // the area and the checksum
   if ( auto const instance = message.u8(); instance != 0 ) {
      heard.speaker += ", instance " + std::to_string( instance );
   }
   message.skip( 1 + 4 + 1 + 1 ); // the interface and the priority
   hello.optionsAt = message.at();
   auto const options = message.u8();
   message.skip( 1 + 2 ); // the interval
   heard.holdTime = std::chrono::seconds( message.u16() );
   message.skip( 4 + 4 ); // the designated router and its backup
   hello.neighbors = neighborsOf( message );
   hello.checksum = { .at = hello.begin + checksumAt,
                      .begin = hello.begin,
                      .end = message.at() + message.left(),
                      .pseudoHeader = true };

   bool const authenticated = ( options & atBit ) != 0;
   if ( !authenticated ) {
      requireCorrect( packet, hello.checksum );
   }
   if ( ( options & hello.lBit ) != 0 ) {
      hello.signaling = signalingOf( packet, rest, authenticated );
   }
   if ( authenticated ) {
      constexpr std::size_t headerBytes = 16;
      auto trailer = rest;
      trailer.skip( 2 ); // the type
      std::size_t const bytes = trailer.u16();
      require( bytes >= headerBytes, Reason::badLength );
      rest.skip( bytes );
      heard.whyNot = authenticatedWith( bytes - headerBytes );
   }
   require( rest.atEnd(), Reason::badLength );
   deriveGoodbye( packet, hello, heard );
   return heard;
}

} // namespace Derivation
