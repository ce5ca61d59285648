#include "derivation/Vrrp.h"

#include "derivation/Editor.h"
#include "derivation/Words.h"

namespace Derivation {

namespace {

constexpr U8 protocol = 112;
constexpr U8 advertisement = 1;
enum Authentication : U8 { none = 0, password = 1 };

struct Advertisement {
   U8 router = 0;
   std::size_t priorityAt = 0;
   U8 priority = 0;
   std::chrono::milliseconds interval{};
   std::string whyNot;
   Checksum checksum;
};

// After the number of addresses.
void readVersion2( Reader & message, std::size_t addresses, Advertisement & read ) {
   constexpr std::size_t passwordBytes = 8; // there without authentication as well
   auto const type = message.u8();
   read.interval = std::chrono::seconds( message.u8() );
   read.checksum.at = message.at();
   message.skip( 2 );
   message.skip( 4 * addresses );
   if ( type == Authentication::none || type == Authentication::password ) {
      message.skip( passwordBytes );
   } else {
      read.whyNot = "authenticated with type " + std::to_string( type );
      message.skip( message.left() );
   }
}

void readVersion3( Reader & message, std::size_t addressesBytes, Advertisement & read ) {
   constexpr int centisecond = 10; // in milliseconds
   constexpr U16 intervalMask = 0xfff;
   read.interval = std::chrono::milliseconds( centisecond * ( message.u16() & intervalMask ) );
   read.checksum.at = message.at();
   message.skip( 2 );
   message.skip( addressesBytes );
}

Advertisement read( Packet const & packet ) {
   auto message = packet.message();
   Advertisement read;
   read.checksum = { .begin = packet.layers.message, .end = packet.layers.end };
   auto const versionAndType = message.u8();
   auto const version = versionAndType >> 4;
   read.router = message.u8();
   read.priorityAt = message.at();
   read.priority = message.u8();
   std::size_t const addresses = message.u8();
   if ( version == 2 && packet.isIpv4() ) {
      readVersion2( message, addresses, read );
   } else {
      require( version == 3, Reason::badVersion );
      readVersion3( message, addresses * packet.source().size(), read );
      read.checksum.pseudoHeader = true;
   }
   require( message.atEnd(), Reason::badLength );
   // Over IPv4, some routers leave the pseudo header out, and their neighbors expect that.
   if ( version == 3 && packet.isIpv4() && !isCorrect( packet, read.checksum ) ) {
      read.checksum.pseudoHeader = false;
   }
   requireCorrect( packet, read.checksum );
   requireUnforwarded( packet );
   require( ( versionAndType & 0xf ) == advertisement && read.router != 0 &&
               read.interval.count() != 0,
            Reason::badValue );
   return read;
}

bool isMulticast( std::string_view address ) {
   constexpr U8 ipv4First = 224, ipv4Last = 239, ipv6 = 0xff;
   auto const first = u8At( address, 0 );
   return address.size() == 4 ? first >= ipv4First && first <= ipv4Last : first == ipv6;
}

Heard heardFrom( Packet const & packet, Advertisement const & advertised ) {
   Heard heard;
   heard.speaker = "virtual router " + std::to_string( advertised.router ) +
                   ( packet.isIpv4() ? " (IPv4)" : " (IPv6)" );
   heard.says = valueText( "priority", advertised.priority );
   // Three intervals, and the skew time, which is at most one interval (in version 2: at most one second). It
   // depends on the priority of the backup, which nothing is known of.
   heard.holdTime = 4 * advertised.interval;
   if ( !isMulticast( packet.destination() ) ) {
      heard.part = "for " + ipText( packet.destination() ); // each neighbor gets its own
   }
   heard.leaves = advertised.priority == 0;
   if ( heard.leaves ) {
      return heard;
   }
   heard.whyNot = advertised.whyNot;
   if ( heard.whyNot.empty() ) {
      Editor editor( packet );
      editor.u8( advertised.priorityAt, 0 );
      editor.fixChecksum( advertised.checksum );
      editor.finish( heard );
      heard.change = changeText( "priority", advertised.priority, 0 );
   }
   return heard;
}

} // namespace

std::optional< Heard > vrrp( Packet const & packet ) {
   return heardFrom( packet, read( packet ) );
}

std::optional< Heard > vrrpInAuthenticationHeader( Packet const & packet ) {
   auto header = packet.message();
   if ( header.u8() != protocol ) {
      return std::nullopt;
   }
   constexpr std::size_t wordBytes = 4, wordsNotCounted = 2, bytesRead = 2;
   header.skip( wordBytes * ( header.u8() + wordsNotCounted ) - bytesRead );
   auto inside = packet;
   inside.layers.message = header.at();
   auto advertised = read( inside );
   advertised.whyNot = "in an authentication header";
   return heardFrom( inside, advertised );
}

} // namespace Derivation
