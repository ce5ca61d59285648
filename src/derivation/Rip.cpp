#include "derivation/Rip.h"

#include "derivation/Authentication.h"
#include "derivation/Editor.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

#include <bit>

namespace Derivation {

namespace {

constexpr U8 response = 2;
constexpr U32 unreachable = 16;
constexpr std::size_t entryBytes = 20;
constexpr std::chrono::seconds holdTime( 180 ); // the same for all routers (RFC 2453, 3.8)

struct Route {
   std::string name;     // "198.51.100.0/24"
   std::size_t metricAt; // its last byte
   U32 metric;
};

// The version of a response, which is sent from the port that it is sent to. Nothing for another command.
std::optional< U8 > versionOf( Packet const & packet, Reader & message, U8 lastVersion ) {
   auto const command = message.u8();
   auto const version = message.u8();
   require( version >= 1 && version <= lastVersion, Reason::badVersion );
   if ( command != response ) {
      return std::nullopt;
   }
   require( u16At( packet.frame, packet.layers.udp ) == packet.layers.number, Reason::badValue );
   message.skip( 2 );
   return version;
}

void requireMetric( U32 metric ) {
   require( metric >= 1 && metric <= unreachable, Reason::badValue );
}

// The last byte of a metric has all of it. Nothing if there is no route.
std::optional< Heard > heardIn( Packet const & packet, std::vector< Route > const & routes,
                                std::string whyNot = "" ) {
   if ( routes.empty() ) {
      return std::nullopt;
   }
   std::vector< std::string > names;
   std::size_t reachable = 0;
   Editor editor( packet );
   for ( auto const & route : routes ) {
      names.push_back( route.name );
      if ( route.metric != unreachable ) {
         ++reachable;
         editor.u8( route.metricAt, unreachable );
      }
   }
   Heard heard;
   heard.speaker = "router " + ipText( packet.source() );
   heard.part = partOf( packet, std::move( names ) );
   heard.holdTime = holdTime;
   heard.says = countText( reachable, "route" );
   heard.leaves = reachable == 0;
   heard.whyNot = std::move( whyNot );
   if ( !heard.leaves && heard.whyNot.empty() ) {
      editor.finish( heard );
      heard.change = heard.says + " -> metric 16";
   }
   return heard;
}

// "/24" of 255.255.255.0; nothing of 0.0.0.0 in version 1, which has no masks.
std::string maskText( U32 mask, U8 version ) {
   auto const length = std::countl_one( mask );
   bool const contiguous = std::popcount( mask ) == length;
   require( contiguous, Reason::badValue );
   return version == 1 && mask == 0 ? "" : "/" + std::to_string( length );
}

Route routeOf( Reader entry, U8 version ) {
   entry.skip( 2 ); // the tag
   auto name = ipText( entry.bytes( 4 ) );
   name += maskText( entry.u32(), version );
   entry.skip( 4 ); // the next hop
   auto const metric = entry.u32();
   requireMetric( metric );
   return { std::move( name ), entry.at() - 1, metric };
}

// RFC 4822, 2: the message ends before a digest. Returns its size.
std::size_t splitDigest( Reader first, Reader & entries ) {
   enum Mark : U32 { trailer = 0xffff0001 };
   constexpr std::size_t read = 4 + entryBytes; // the header, and the first entry
   std::size_t const length = first.u16();
   require( length >= read, Reason::badLength );
   auto rest = entries;
   entries = rest.part( length - read );
   require( rest.u32() == trailer, Reason::badValue );
   return rest.left();
}

} // namespace

std::optional< Heard > rip( Packet const & packet ) {
   enum Family : U16 { ipv4 = 2, authentication = 0xffff };
   enum Authentication : U16 { password = 2, digest = 3 };
   auto message = packet.message();
   auto const version = versionOf( packet, message, 2 );
   if ( !version ) {
      return std::nullopt;
   }
   std::string whyNot;
   std::vector< Route > routes;
   for ( bool isFirst = true; !message.atEnd(); isFirst = false ) {
      auto entry = message.part( entryBytes );
      auto const family = entry.u16();
      if ( family == authentication && isFirst && *version == 2 ) {
         auto const type = entry.u16();
         require( type == password || type == digest, Reason::badValue );
         if ( type == digest ) {
            whyNot = authenticatedWith( splitDigest( entry, message ) );
         }
      } else {
         require( family == ipv4, Reason::badValue );
         routes.push_back( routeOf( entry, *version ) );
      }
   }
   return heardIn( packet, routes, std::move( whyNot ) );
}

std::optional< Heard > ripng( Packet const & packet ) {
   constexpr U8 nextHop = 0xff, maxLength = 128;
   auto message = packet.message();
   if ( !versionOf( packet, message, 1 ) ) {
      return std::nullopt;
   }
   if ( bool const toGroup = partOf( packet ).empty(); toGroup ) {
      requireUnforwarded( packet );
   }
   std::vector< Route > routes;
   while ( !message.atEnd() ) {
      auto entry = message.part( entryBytes );
      auto name = ipText( entry.bytes( 16 ) );
      entry.skip( 2 ); // the tag
      auto const length = entry.u8();
      auto const metric = entry.u8();
      if ( metric != nextHop ) {
         require( length <= maxLength, Reason::badValue );
         requireMetric( metric );
         routes.push_back( { name + "/" + std::to_string( length ), entry.at() - 1, metric } );
      }
   }
   return heardIn( packet, routes );
}

} // namespace Derivation
