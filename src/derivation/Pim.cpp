#include "derivation/Pim.h"

#include "derivation/Editor.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr U8 version = 2, hello = 0;

enum Option : U16 {
   holdTime = 1,
   pruneDelay = 2,
   priority = 19,
   generation = 20,
   stateRefresh = 21,
   bidirectional = 22,
   addresses = 24
};

// Encoded unicast addresses (RFC 7761, 4.9.1).
void verifyAddresses( Reader value ) {
   constexpr U8 families[] = { 0, 4, 16 }; // the bytes of an address
   while ( !value.atEnd() ) {
      auto const family = value.u8();
      require( family != 0 && family < std::size( families ) && value.u8() == 0, Reason::badValue );
      value.skip( families[ family ] );
   }
}

// RFC 7761, 4.9.2; RFC 3973, 4.7.5; RFC 5015, 3.7.4. Other options may be of any length.
void verify( U16 type, Reader value ) {
   switch ( type ) {
   case holdTime:
      return require( value.left() == 2, Reason::badLength );
   case pruneDelay:
   case priority:
   case generation:
   case stateRefresh:
      return require( value.left() == 4, Reason::badLength );
   case bidirectional:
      return require( value.atEnd(), Reason::badLength );
   case addresses:
      return verifyAddresses( value );
   default:
      return;
   }
}

// The value of the hold time, if there is one.
std::optional< Reader > holdTimeOf( Reader options ) {
   std::optional< Reader > found;
   while ( !options.atEnd() ) {
      auto const type = options.u16();
      auto const value = options.part( options.u16(), Reason::tlvBeyondEnd );
      verify( type, value );
      if ( type == holdTime ) {
         require( !found, Reason::tlvMissing );
         found = value;
      }
   }
   return found;
}

} // namespace

std::optional< Heard > pim( Packet const & packet ) {
   constexpr std::chrono::seconds defaultHoldTime( 105 );
   constexpr char const * what = "hold time";
   auto message = packet.message();
   auto const begin = message.at();
   auto const first = message.u8();
   require( first >> 4 == version, Reason::badVersion );
   if ( ( first & 0xf ) != hello ) {
      return std::nullopt;
   }
   Checksum const checksum{
      .at = begin + 2, .begin = begin, .end = packet.layers.end, .pseudoHeader = !packet.isIpv4() };
   requireCorrect( packet, checksum );
   message.skip( 1 + 2 ); // a reserved byte and the checksum
   Heard heard;
   heard.speaker = "router " + ipText( packet.source() );
   heard.part = partOf( packet );

   auto const option = holdTimeOf( message );
   if ( !option ) {
      heard.says = "no hold time";
      heard.holdTime = defaultHoldTime;
      heard.whyNot = "without a hold time";
      return heard;
   }
   auto const seconds = Reader( *option ).u16();
   heard.says = valueText( what, seconds );
   heard.holdTime = std::chrono::seconds( seconds );
   heard.leaves = seconds == 0;
   if ( !heard.leaves ) {
      Editor editor( packet );
      editor.u16( option->at(), 0 );
      editor.fixChecksum( checksum );
      editor.finish( heard );
      heard.change = changeText( what, seconds, 0 );
   }
   return heard;
}

} // namespace Derivation
