// The layers of a frame below the message of a protocol: Ethernet with one tag or none, IEEE 802.2, IPv4, IPv6
// and UDP.
#pragma once

#include "derivation/Reader.h"

#include <optional>
#include <string>

namespace Derivation {

// What carries a message, and what its number is.
enum class Carrier : U8 {
   ethernet, // the EtherType
   slow,     // the subtype of a slow protocol (IEEE 802.3, 57A)
   llc,      // both service access points
   snap,     // the protocol id of Cisco's OUI
   ipv4,     // the protocol
   ipv6,     // the protocol
   udp4,     // the destination port
   udp6,     // the destination port
   icmp6,    // the type
};

// Positions in a frame.
struct Layers {
   Carrier carrier = Carrier::ethernet;
   U16 number = 0;
   std::size_t type = 0; // the EtherType or length, after a tag
   std::size_t ip = 0;   // 0: none
   U8 ipProtocol = 0;
   std::size_t udp = 0;     // 0: none
   std::size_t message = 0; // after all headers; that of a slow protocol has its subtype
   std::size_t end = 0;     // of the message; padding may follow
};

// A frame whose layers are right.
struct Packet {
   std::string frame; // its UDP checksum is complete
   Layers layers;

   Reader message() const { return { frame, layers.message, layers.end }; }
   bool isIpv4() const { return u8At( frame, layers.ip ) >> 4 == 4; }
   std::string_view destinationMac() const { return std::string_view( frame ).substr( 0, 6 ); }
   std::string_view sourceMac() const { return std::string_view( frame ).substr( 6, 6 ); }
   // For messages over IP. The destination is inside the frame.
   std::string_view source() const;
   std::string_view destination() const;
   U8 hopLimit() const { return u8At( frame, layers.ip + ( isIpv4() ? 8U : 7U ) ); }
};

// Looks only for what carries which message. Nothing if the frame has no message with a number.
std::optional< Layers > layersOf( std::string_view frame );

// Verifies lengths and checksums below the message. A UDP checksum may be the partial one that a frame has
// before the device completes it. Throws Refused.
Packet packetOf( std::string_view frame, Layers const & layers );

// Throws Refused if routers may have forwarded the packet, which receivers therefore drop.
inline void requireUnforwarded( Packet const & packet ) {
   constexpr U8 mostHops = 255;
   require( packet.hopLimit() == mostHops, Reason::badHopLimit );
}

} // namespace Derivation
