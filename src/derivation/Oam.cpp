#include "derivation/Oam.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr U16 dyingGasp = 1 << 1;
constexpr U8 information = 0;
enum Type : U8 { endOfTlvs = 0, local = 1, remote = 2, organization = 254 };
constexpr std::chrono::seconds lostLink( 5 ); // 57.3.3.2

// 57.5.2. Other types are not to be sent.
void verifyTlvs( Reader & unit ) {
   constexpr std::size_t informationBytes = 16, leastOrganization = 5;
   for ( auto type = unit.u8(); type != endOfTlvs; type = unit.u8() ) {
      require( type == local || type == remote || type == organization, Reason::badValue );
      std::size_t const length = unit.u8();
      require( length >= ( type == organization ? leastOrganization : 2 ), Reason::badLength );
      require( ( type != local && type != remote ) || length == informationBytes,
               Reason::badLength );
      unit.part( length - 2, Reason::tlvBeyondEnd );
   }
}

std::string flagsText( U16 flags ) {
   return ( flags & dyingGasp ) != 0 ? "dying gasp" : "no dying gasp";
}

} // namespace

std::optional< Heard > oam( Packet const & packet ) {
   auto unit = packet.message();
   unit.skip( 1 ); // the subtype
   auto const flagsAt = unit.at();
   auto const flags = unit.u16();
   if ( unit.u8() != information ) {
      return std::nullopt;
   }
   verifyTlvs( unit );

   Heard heard;
   heard.speaker = "port " + macText( packet.sourceMac() );
   heard.says = flagsText( flags );
   heard.holdTime = lostLink;
   heard.leaves = ( flags & dyingGasp ) != 0;
   if ( !heard.leaves ) {
      Editor editor( packet );
      editor.u16( flagsAt, flags | dyingGasp );
      editor.finish( heard );
      heard.change = heard.says + " -> " + flagsText( dyingGasp );
   }
   return heard;
}

} // namespace Derivation
