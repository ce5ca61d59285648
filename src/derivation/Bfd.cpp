#include "derivation/Bfd.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

#include <algorithm>
#include <array>

namespace Derivation {

namespace {

enum State : U8 { adminDown = 0, down = 1 };
// Of the byte with the state, which has its two high bits.
enum Flag : U8 { poll = 0x20, final = 0x10, authenticationPresent = 4, multipoint = 1 };

constexpr std::array stateNames{ "AdminDown", "Down", "Init", "Up" };

// RFC 5880, 4.1 to 4.4. Empty if there is only a password.
std::string verifyAuthentication( Reader section ) {
   struct Type {
      char const * name;
      std::size_t leastBytes, mostBytes;
   };
   constexpr std::array types{ Type{ "password", 3 + 1, 3 + 16 }, Type{ "keyed MD5", 24, 24 },
                               Type{ "meticulous keyed MD5", 24, 24 },
                               Type{ "keyed SHA-1", 28, 28 },
                               Type{ "meticulous keyed SHA-1", 28, 28 } };
   constexpr U8 password = 1;
   auto const bytes = section.left();
   auto const type = section.u8();
   require( type >= password && type <= types.size(), Reason::badValue );
   auto const & [ name, least, most ] = types.at( type - password );
   require( section.u8() == bytes && bytes >= least && bytes <= most, Reason::badLength );
   return type == password ? "" : std::string( "authenticated with " ) + name;
}

// Intervals below 1 s count as 1 s: the neighbor may have asked for fewer packets, which only its own packets say.
std::chrono::milliseconds holdTimeOf( U8 multiplier, U32 microseconds ) {
   using std::chrono::milliseconds;
   constexpr milliseconds least = std::chrono::seconds( 1 ), most = std::chrono::hours( 1 );
   return std::min( multiplier * std::max( milliseconds( microseconds / 1000 ), least ), most );
}

} // namespace

std::optional< Heard > bfd( Packet const & packet ) {
   constexpr U8 version = 1, byAdministrator = 7; // the diagnostic
   constexpr U16 oneHop = 3784;                   // the port
   if ( packet.layers.number == oneHop ) {
      requireUnforwarded( packet );
   }
   auto message = packet.message();
   auto const begin = message.at();
   require( message.u8() >> 5 == version, Reason::badVersion );
   auto const stateAt = message.at();
   auto const stateAndFlags = message.u8();
   auto const state = stateAndFlags >> 6;
   auto const multiplier = message.u8();
   std::size_t const length = message.u8();
   require( multiplier != 0 && ( stateAndFlags & multipoint ) == 0, Reason::badValue );
   require( length == packet.layers.end - begin, Reason::badLength );
   Heard heard;
   auto const discriminator = message.bytes( 4 );
   require( discriminator != std::string_view( "\0\0\0\0", 4 ), Reason::badValue );
   heard.speaker = "session with my discriminator 0x" + hexText( discriminator );
   require( message.u32() != 0 || state <= down, Reason::badValue );
   heard.holdTime = holdTimeOf( multiplier, message.u32() );
   message.skip( 4 + 4 ); // the required intervals
   if ( ( stateAndFlags & authenticationPresent ) != 0 ) {
      heard.whyNot = verifyAuthentication( message );
   } else {
      require( message.atEnd(), Reason::badLength );
   }

   auto const * const stateName = stateNames.at( state );
   heard.says = std::string( "state " ) + stateName;
   heard.leaves = state == adminDown;
   if ( !heard.leaves && heard.whyNot.empty() ) {
      constexpr U8 cleared = 3 << 6 | poll | final;
      Editor editor( packet );
      editor.u8( begin, version << 5 | byAdministrator );
      editor.u8( stateAt, static_cast< U8 >( stateAndFlags & ~cleared ) );
      editor.finish( heard );
      heard.change = heard.says + " -> " + stateNames[ adminDown ];
   }
   return heard;
}

} // namespace Derivation
