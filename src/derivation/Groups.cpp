#include "derivation/Groups.h"

#include "derivation/Checksums.h"
#include "derivation/Memberships.h"
#include "derivation/Parts.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

enum IgmpType : U8 { report1 = 0x12, report2 = 0x16, leave2 = 0x17, report3 = 0x22 };
enum MldType : U8 { mldReport1 = 131, mldReport2 = 143 };

struct Membership {
   std::string group;
   bool joined;
};
using Groups = std::vector< Membership >;

// The records of a report of IGMP version 3 (RFC 3376, 4.2) or MLD version 2 (RFC 3810, 5.2), after its checksum.
Groups recordsOf( Reader message, std::size_t addressBytes ) {
   enum Type : U8 { isInclude = 1, toInclude = 3, lastType = 6 };
   constexpr std::size_t word = 4; // of auxiliary data
   Groups groups;
   message.skip( 2 );
   for ( auto left = message.u16(); left > 0; --left ) {
      auto const type = message.u8();
      require( type >= isInclude && type <= lastType, Reason::badValue );
      std::size_t const auxiliary = message.u8();
      std::size_t const sources = message.u16();
      auto group = ipText( message.bytes( addressBytes ) );
      message.skip( sources * addressBytes + auxiliary * word );
      bool const leaves = ( type == isInclude || type == toInclude ) && sources == 0;
      groups.push_back( { std::move( group ), !leaves } );
   }
   require( message.atEnd() && !groups.empty(), Reason::badLength );
   return groups;
}

Heard heardIn( Packet const & packet, Groups const & groups ) {
   std::vector< std::string > names;
   std::size_t joined = 0;
   for ( auto const & group : groups ) {
      names.push_back( group.group );
      joined += group.joined ? 1 : 0;
   }
   Heard heard;
   heard.speaker = "host " + ipText( packet.source() );
   heard.part = partOf( std::move( names ) );
   heard.says = countText( joined, "group" );
   heard.holdTime = membershipHoldTime;
   heard.leaves = joined == 0;
   heard.whyNot = heard.leaves ? "" : "derived from the kernel's memberships";
   return heard;
}

} // namespace

std::optional< Heard > igmp( Packet const & packet ) {
   auto message = packet.message();
   auto const begin = message.at();
   auto const type = message.u8();
   if ( type != report1 && type != report2 && type != leave2 && type != report3 ) {
      return std::nullopt;
   }
   requireCorrect( packet, { .at = begin + 2, .begin = begin, .end = packet.layers.end } );
   message.skip( 1 + 2 ); // the response time and the checksum
   if ( type == report3 ) {
      return heardIn( packet, recordsOf( message, 4 ) );
   }
   // Version 2 may have more after the group, which no one reads (RFC 2236, 2.5).
   return heardIn( packet, { { ipText( message.bytes( 4 ) ), type != leave2 } } );
}

std::optional< Heard > mld( Packet const & packet ) {
   auto message = packet.message();
   auto const begin = message.at();
   auto const type = message.u8();
   requireCorrect(
      packet, { .at = begin + 2, .begin = begin, .end = packet.layers.end, .pseudoHeader = true } );
   message.skip( 1 + 2 ); // the code and the checksum
   if ( type == mldReport2 ) {
      return heardIn( packet, recordsOf( message, 16 ) );
   }
   message.skip( 2 + 2 ); // the response delay
   return heardIn( packet, { { ipText( message.bytes( 16 ) ), type == mldReport1 } } );
}

} // namespace Derivation
