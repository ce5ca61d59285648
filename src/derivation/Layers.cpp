#include "derivation/Layers.h"

#include "derivation/Checksums.h"
#include "derivation/IpOptions.h"

namespace Derivation {

namespace {

constexpr std::size_t addressesBytes = 12; // of Ethernet
constexpr std::size_t tagBytes = 4;
constexpr std::size_t udpHeaderBytes = 8;
constexpr std::size_t ipv6HeaderBytes = 40;
constexpr U16 maxLength = 1500; // larger ones are EtherTypes
constexpr U8 udpProtocol = 17, icmp6Protocol = 58, hopByHop = 0;
enum EtherType : U16 {
   ipv4 = 0x0800,
   vlan = 0x8100,
   ipv6 = 0x86dd,
   slow = 0x8809,
   serviceVlan = 0x88a8
};

// Sets the carrier and the number of what IP carries. The message begins where IP ends.
void lookInsideIp( Reader frame, U8 protocol, bool version4, Layers & layers ) {
   layers.message = frame.at();
   layers.carrier = version4 ? Carrier::ipv4 : Carrier::ipv6;
   layers.number = layers.ipProtocol = protocol;
   if ( protocol == udpProtocol ) {
      frame.skip( 2 ); // the source port
      layers.carrier = version4 ? Carrier::udp4 : Carrier::udp6;
      layers.number = frame.u16();
      layers.udp = layers.message;
      layers.message += udpHeaderBytes;
   } else if ( protocol == icmp6Protocol && !version4 ) {
      layers.carrier = Carrier::icmp6;
      layers.number = frame.u8();
   }
}

bool lookInsideIpv4( Reader frame, Layers & layers ) {
   layers.ip = frame.at();
   auto const first = frame.u8();
   frame.skip( 5 );
   auto const fragment = frame.u16();
   frame.skip( 1 );
   auto const protocol = frame.u8();
   constexpr std::size_t read = 10, leastWords = 5;
   auto const words = first & 0xfU;
   if ( first >> 4 != 4 || words < leastWords || ( fragment & 0x1fff ) != 0 ) {
      return false; // a later fragment has no port
   }
   frame.skip( 4 * words - read );
   lookInsideIp( frame, protocol, true, layers );
   return true;
}

bool lookInsideIpv6( Reader frame, Layers & layers ) {
   layers.ip = frame.at();
   auto const first = frame.u8();
   frame.skip( 5 );
   auto protocol = frame.u8();
   frame.skip( ipv6HeaderBytes - 7 );
   if ( first >> 4 != 6 ) {
      return false;
   }
   if ( protocol == hopByHop ) {
      protocol = frame.u8();
      frame.skip( 8U * frame.u8() + 6 );
   }
   lookInsideIp( frame, protocol, false, layers );
   return true;
}

bool lookInsideLlc( Reader frame, Layers & layers ) {
   constexpr U16 snapPoints = 0xaaaa;
   constexpr U8 unnumbered = 3;
   constexpr U32 cisco = 0x00000c;
   layers.carrier = Carrier::llc;
   layers.number = frame.u16();
   if ( frame.u8() != unnumbered ) {
      return false;
   }
   if ( layers.number == snapPoints ) {
      U32 const high = frame.u16();
      if ( ( high << 8 | frame.u8() ) != cisco ) {
         return false;
      }
      layers.carrier = Carrier::snap;
      layers.number = frame.u16();
   }
   layers.message = frame.at();
   return true;
}

bool lookInside( Reader frame, Layers & layers ) {
   frame.skip( addressesBytes );
   layers.type = frame.at();
   auto type = frame.u16();
   if ( type == EtherType::vlan || type == EtherType::serviceVlan ) {
      frame.skip( 2 );
      layers.type += tagBytes;
      type = frame.u16();
   }
   layers.message = frame.at();
   layers.number = type;
   switch ( type ) {
   case EtherType::ipv4:
      return lookInsideIpv4( frame, layers );
   case EtherType::ipv6:
      return lookInsideIpv6( frame, layers );
   case EtherType::slow:
      layers.carrier = Carrier::slow;
      layers.number = frame.u8();
      return true;
   default:
      return type > maxLength || lookInsideLlc( frame, layers );
   }
}

// The end of the IP packet.
std::size_t verifyIpv4( Packet const & packet ) {
   auto const & [ frame, layers ] = packet;
   constexpr std::size_t lengthAt = 2, fragmentAt = 6, checksumAt = 10, optionsAt = 20;
   constexpr U16 moreFragments = 0x2000;
   auto const begin = layers.ip;
   auto const header = 4U * ( u8At( frame, begin ) & 0xfU );
   require( begin + header <= frame.size(), Reason::cutOff );
   std::size_t const length = u16At( frame, begin + lengthAt );
   require( length >= header, Reason::badLength );
   require( begin + length <= frame.size(), Reason::cutOff );
   requireCorrect( packet, { .at = begin + checksumAt, .begin = begin, .end = begin + header } );
   require( ( u16At( frame, begin + fragmentAt ) & moreFragments ) == 0, Reason::fragment );
   verifyIpv4Options( Reader( frame, begin + optionsAt, begin + header ) );
   return begin + length;
}

std::size_t verifyIpv6( Packet const & packet ) {
   auto const & [ frame, layers ] = packet;
   constexpr std::size_t lengthAt = 4, nextHeaderAt = 6, headBytes = 2;
   std::size_t const length = u16At( frame, layers.ip + lengthAt );
   auto const begin = layers.ip + ipv6HeaderBytes;
   auto const end = begin + length;
   require( end <= frame.size(), Reason::cutOff );
   if ( u8At( frame, layers.ip + nextHeaderAt ) == hopByHop ) {
      Reader header( frame, begin, end );
      header.skip( 1 ); // what follows
      auto const words = header.u8();
      verifyHopByHopOptions( header.part( 8U * ( words + 1 ) - headBytes, Reason::badLength ) );
   }
   return end;
}

// Completes the checksum, if it is partial: the sum of the pseudo header alone.
void verifyUdp( Packet & packet ) {
   auto & [ frame, layers ] = packet;
   constexpr std::size_t lengthAt = 4, checksumAt = 6;
   auto const begin = layers.udp;
   auto const length = layers.end - begin;
   require( u16At( frame, begin + lengthAt ) == length, Reason::badLength );
   Checksum const checksum{
      .at = begin + checksumAt, .begin = begin, .end = layers.end, .pseudoHeader = true };
   auto const field = u16At( frame, checksum.at );
   if ( ( field == 0 && packet.isIpv4() ) || isCorrect( packet, checksum ) ) {
      return; // none, or correct
   }
   require( field == onesSum( { pseudoHeader( packet, length ) } ), Reason::badChecksum );
   putChecksum( packet, checksum );
}

} // namespace

std::string_view Packet::source() const {
   return std::string_view( frame ).substr( layers.ip + ( isIpv4() ? 12U : 8U ),
                                            isIpv4() ? 4 : 16 );
}

std::string_view Packet::destination() const {
   return std::string_view( frame ).substr( layers.ip + ( isIpv4() ? 16U : 24U ),
                                            isIpv4() ? 4 : 16 );
}

std::optional< Layers > layersOf( std::string_view frame ) {
   Layers layers;
   try {
      if ( !lookInside( Reader( frame, 0, frame.size() ), layers ) ) {
         return std::nullopt;
      }
   } catch ( Refused const & ) {
      return std::nullopt;
   }
   layers.end = frame.size();
   return layers;
}

Packet packetOf( std::string_view frame, Layers const & layers ) {
   Packet packet{ std::string( frame ), layers };
   auto & end = packet.layers.end;
   switch ( layers.carrier ) {
   case Carrier::ethernet:
   case Carrier::slow:
      return packet;
   case Carrier::llc:
   case Carrier::snap:
      end = layers.type + 2 + u16At( frame, layers.type );
      require( end <= frame.size(), Reason::cutOff );
      break;
   default:
      end = packet.isIpv4() ? verifyIpv4( packet ) : verifyIpv6( packet );
   }
   require( layers.message <= end, Reason::badLength );
   if ( layers.udp != 0 ) {
      verifyUdp( packet );
   }
   return packet;
}

} // namespace Derivation
