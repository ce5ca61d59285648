#include "derivation/Lacp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

enum Type : U8 { terminator = 0, actor = 1, partner = 2, collector = 3 };
enum State : U8 {
   shortTimeout = 1 << 1,
   inSync = 1 << 3,
   collecting = 1 << 4,
   distributing = 1 << 5
};
constexpr U8 takesPart = inSync | collecting | distributing;
constexpr std::size_t unitBytes = 110;
constexpr std::chrono::seconds shortHold( 3 ), longHold( 90 );

Reader tlv( Reader & unit, Type type, std::size_t length ) {
   require( unit.u8() == type, Reason::tlvMissing );
   require( unit.u8() == length, Reason::badLength );
   return unit.part( length - 2, Reason::tlvBeyondEnd );
}

// Version 2 has more TLVs, which receivers of version 1 ignore.
void verifyEnd( Reader & unit ) {
   while ( unit.u8() != terminator ) {
      std::size_t const length = unit.u8();
      require( length >= 2, Reason::badLength );
      unit.part( length - 2, Reason::tlvBeyondEnd );
   }
   require( unit.u8() == 0, Reason::badLength );
}

struct Participant {
   std::string_view system;
   U16 port;
   std::size_t stateAt;
   U8 state;
};

Participant participant( Reader & unit, Type type ) {
   constexpr std::size_t length = 20;
   auto value = tlv( unit, type, length );
   value.skip( 2 ); // the system's priority
   auto const system = value.bytes( 6 );
   value.skip( 2 + 2 ); // the key and the port's priority
   auto const port = value.u16();
   auto const at = value.at();
   return { system, port, at, value.u8() };
}

std::string stateText( U8 state ) {
   std::string text = ( state & inSync ) != 0 ? "in sync" : "out of sync";
   text += ( state & collecting ) != 0 ? ", collecting" : "";
   return text + ( ( state & distributing ) != 0 ? ", distributing" : "" );
}

} // namespace

std::optional< Heard > lacp( Packet const & packet ) {
   constexpr std::size_t collectorLength = 16;
   auto unit = packet.message();
   require( unit.left() >= unitBytes, Reason::cutOff );
   bool const longer = unit.left() > unitBytes;
   unit.skip( 1 ); // the subtype
   auto const version = unit.u8();
   require( version != 0, Reason::badVersion );
   require( version != 1 || !longer, Reason::badLength );
   auto const own = participant( unit, actor );
   auto const other = participant( unit, partner );
   tlv( unit, collector, collectorLength );
   verifyEnd( unit );

   Heard heard;
   heard.speaker = "system " + macText( own.system ) + ", port " + std::to_string( own.port );
   heard.says = stateText( own.state );
   // The partner chooses its timeout.
   heard.holdTime = ( other.state & shortTimeout ) != 0 ? shortHold : longHold;
   heard.leaves = ( own.state & takesPart ) == 0;
   if ( !heard.leaves ) {
      auto const state = static_cast< U8 >( own.state & ~takesPart );
      Editor editor( packet );
      editor.u8( own.stateAt, state );
      editor.finish( heard );
      heard.change = heard.says + " -> " + stateText( state );
   }
   return heard;
}

} // namespace Derivation
