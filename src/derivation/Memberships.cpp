#include "derivation/Memberships.h"

#include "derivation/Checksums.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

#include <algorithm>

namespace Derivation {

namespace {

using Groups = std::vector< std::string >;

constexpr std::size_t ipv4Bytes = 4, ipv6Bytes = 16; // of an address
constexpr std::size_t headBytes = 8;                 // of a report, before its records
constexpr std::string_view hopByHop( "\x3a\0\5\2\0\0\1\0", 8 );

enum class Says : U8 { joins, leaves };

struct Message {
   std::string to;
   std::string bytes;
};

std::string bytesOf( std::size_t value, std::size_t bytes ) {
   std::string text( bytes, '\0' );
   putNumber( text, 0, bytes, static_cast< U32 >( value ) );
   return text;
}

bool isIpv4( std::string const & address ) {
   return address.size() == ipv4Bytes;
}

bool canBeLeft( std::string const & group ) {
   if ( isIpv4( group ) ) {
      constexpr std::string_view local( "\xe0\0\0", 3 );
      return u8At( group, 0 ) >> 4 == 0xe && !group.starts_with( local );
   }
   constexpr U8 hostScope = 1, linkScope = 2, scope = 0xf;
   if ( group.size() != ipv6Bytes || u8At( group, 0 ) != 0xff ) {
      return false;
   }
   auto const flagsAndScope = u8At( group, 1 );
   return ( flagsAndScope & scope ) > hostScope && flagsAndScope != linkScope;
}

// RFC 1112, 6.4; RFC 2464, 7.
std::string groupMac( std::string const & group ) {
   if ( isIpv4( group ) ) {
      auto low = group.substr( 1 );
      low[ 0 ] = static_cast< char >( low[ 0 ] & 0x7f );
      return std::string( "\x01\0\x5e", 3 ) + low;
   }
   return "\x33\x33" + group.substr( ipv6Bytes - 4 );
}

// All routers; of reports, all that understand them.
std::string routers( bool version4, bool ofReports ) {
   auto const high = version4 ? std::string( "\xe0\0\0", 3 )
                              : std::string( "\xff\2", 2 ) + std::string( ipv6Bytes - 3, '\0' );
   return high + ( ofReports ? '\x16' : '\2' );
}

// IGMP version 2 (RFC 2236, 2), MLD version 1 (RFC 2710, 3).
Message messageFor( std::string const & group, Says says ) {
   bool const version4 = isIpv4( group ), joins = says == Says::joins;
   constexpr std::size_t igmpReport = 0x16, igmpLeave = 0x17, mldReport = 131, mldDone = 132;
   auto const type = version4 ? joins ? igmpReport : igmpLeave : joins ? mldReport : mldDone;
   return { joins ? group : routers( version4, false ),
            bytesOf( type, 1 ) + bytesOf( 0, version4 ? 3 : 7 ) + group };
}

// IGMP version 3 (RFC 3376, 4.2), MLD version 2 (RFC 3810, 5.2): of all sources, or of none.
Message reportOf( Groups const & groups, Says says ) {
   bool const version4 = isIpv4( groups.front() );
   constexpr std::size_t igmpReport = 0x22, mldReport = 143, toInclude = 3, toExclude = 4;
   auto bytes = bytesOf( version4 ? igmpReport : mldReport, 1 ) + bytesOf( 0, 5 ) +
                bytesOf( groups.size(), 2 );
   for ( auto const & group : groups ) {
      bytes += bytesOf( says == Says::joins ? toExclude : toInclude, 1 ) + bytesOf( 0, 3 ) + group;
   }
   return { routers( version4, true ), bytes };
}

// Both have a router alert (RFC 2113, RFC 2711), without which routers do not look at the message.
std::string ipv4Header( Member const & member, Message const & message ) {
   constexpr std::size_t headerBytes = 24;
   return bytesOf( 0x46c0, 2 ) + bytesOf( headerBytes + message.bytes.size(), 2 ) +
          bytesOf( 0, 4 ) + bytesOf( 0x0102, 2 ) + bytesOf( 0, 2 ) + member.ipv4 + message.to +
          bytesOf( 0x94040000, 4 );
}
std::string ipv6Header( Member const & member, Message const & message ) {
   return bytesOf( 0x60000000, 4 ) + bytesOf( hopByHop.size() + message.bytes.size(), 2 ) +
          bytesOf( 0x0001, 2 ) + member.linkLocal + message.to + std::string( hopByHop );
}

std::string frameOf( Member const & member, Message const & message ) {
   constexpr std::size_t ipv4Type = 0x0800, ipv6Type = 0x86dd, ipChecksum = 10, checksum = 2;
   bool const version4 = isIpv4( message.to );
   auto const ip = version4 ? ipv4Header( member, message ) : ipv6Header( member, message );
   auto frame = groupMac( message.to ) + member.mac + bytesOf( version4 ? ipv4Type : ipv6Type, 2 ) +
                ip + message.bytes;
   auto const layers = layersOf( frame ).value();
   Packet packet{ std::move( frame ), layers };
   if ( version4 ) {
      putChecksum( packet,
                   { .at = layers.ip + ipChecksum, .begin = layers.ip, .end = layers.message } );
   }
   putChecksum( packet, { .at = layers.message + checksum,
                          .begin = layers.message,
                          .end = layers.end,
                          .pseudoHeader = !version4 } );
   return packet.frame;
}

// Both have the same length.
std::vector< Replaced > differences( std::string const & greeting, std::string const & goodbye ) {
   std::vector< Replaced > found;
   for ( std::size_t at = 0; at < greeting.size(); ++at ) {
      if ( greeting[ at ] == goodbye[ at ] ) {
         continue;
      }
      if ( !found.empty() && found.back().at + found.back().bytes == at ) {
         ++found.back().bytes;
         ++found.back().by;
      } else {
         found.push_back( { at, 1, 1 } );
      }
   }
   return found;
}

Heard heardOf( Member const & member, Groups const & groups, bool inReport ) {
   constexpr char const * what = "group";
   bool const version4 = isIpv4( groups.front() );
   auto const frame = [ & ]( Says says ) {
      return frameOf( member,
                      inReport ? reportOf( groups, says ) : messageFor( groups.front(), says ) );
   };
   Groups names;
   for ( auto const & group : groups ) {
      names.push_back( ipText( group ) );
   }
   Heard heard;
   heard.protocol = version4 ? "igmp" : "mld";
   heard.speaker = "host " + ipText( version4 ? member.ipv4 : member.linkLocal );
   heard.says = countText( groups.size(), what );
   heard.holdTime = membershipHoldTime;
   heard.part = partOf( std::move( names ) );
   heard.greeting = frame( Says::joins );
   heard.goodbye = frame( Says::leaves );
   heard.change = heard.says + " -> " + countText( 0, what );
   heard.replaced = differences( heard.greeting, heard.goodbye );
   return heard;
}

// All groups are of one version of IP.
void hear( Member const & member, Groups const & groups, bool inReports,
           std::vector< Heard > & heard ) {
   if ( groups.empty() ) {
      return;
   }
   bool const version4 = isIpv4( groups.front() );
   auto const headers = ( version4 ? 24 : 40 + hopByHop.size() ) + headBytes;
   auto const recordBytes = 4 + groups.front().size();
   auto const fitting = ( std::max( member.mtu, headers ) - headers ) / recordBytes;
   auto const most = inReports ? std::max< std::size_t >( fitting, 1 ) : 1;
   for ( std::size_t from = 0; from < groups.size(); from += most ) {
      auto const end = std::min( from + most, groups.size() );
      Groups const some( groups.begin() + static_cast< std::ptrdiff_t >( from ),
                         groups.begin() + static_cast< std::ptrdiff_t >( end ) );
      heard.push_back( heardOf( member, some, inReports ) );
   }
}

} // namespace

std::vector< Heard > membershipsOf( Member const & member, std::vector< std::string > groups ) {
   std::sort( groups.begin(), groups.end() );
   groups.erase( std::unique( groups.begin(), groups.end() ), groups.end() );
   Groups ipv4, ipv6;
   for ( auto & group : groups ) {
      if ( canBeLeft( group ) ) {
         ( isIpv4( group ) ? ipv4 : ipv6 ).push_back( std::move( group ) );
      }
   }
   std::vector< Heard > heard;
   if ( !member.ipv4.empty() ) {
      hear( member, ipv4, member.igmpVersion >= 3, heard );
   }
   if ( !member.linkLocal.empty() ) {
      hear( member, ipv6, member.mldVersion >= 2, heard );
   }
   return heard;
}

} // namespace Derivation
