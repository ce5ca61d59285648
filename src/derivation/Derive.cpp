#include "derivation/Derive.h"

#include "derivation/Bfd.h"
#include "derivation/Cdp.h"
#include "derivation/Eigrp.h"
#include "derivation/Groups.h"
#include "derivation/Hsrp.h"
#include "derivation/IsisHello.h"
#include "derivation/Lacp.h"
#include "derivation/Layers.h"
#include "derivation/Lldp.h"
#include "derivation/Mdns.h"
#include "derivation/Oam.h"
#include "derivation/Ospf.h"
#include "derivation/Pim.h"
#include "derivation/Rip.h"
#include "derivation/RouterAdvertisement.h"
#include "derivation/Vrrp.h"

#include <algorithm>
#include <array>

namespace Derivation {

namespace {

struct Protocol {
   char const * name;
   // What selects it. A frame may turn out to be of no speaker all the same: a query, an update.
   Carrier carrier;
   U16 number;
   // Sets all of it but the protocol and the greeting. Nothing for a frame that is of no speaker. Throws
   // Refused.
   std::optional< Heard > ( *parse )( Packet const & packet );
};

constexpr std::array protocols{
   Protocol{ "lldp", Carrier::ethernet, 0x88cc, lldp },
   Protocol{ "ra", Carrier::icmp6, 134, routerAdvertisement },
   Protocol{ "vrrp", Carrier::ipv4, 51, vrrpInAuthenticationHeader },
   Protocol{ "vrrp", Carrier::ipv4, 112, vrrp },
   Protocol{ "vrrp", Carrier::ipv6, 112, vrrp },
   Protocol{ "lacp", Carrier::slow, 1, lacp },
   Protocol{ "oam", Carrier::slow, 3, oam },
   Protocol{ "isis", Carrier::llc, 0xfefe, isisHello },
   Protocol{ "cdp", Carrier::snap, 0x2000, cdp },
   Protocol{ "hsrp", Carrier::udp4, 1985, hsrp },
   Protocol{ "hsrp", Carrier::udp6, 2029, hsrp },
   Protocol{ "ospf", Carrier::ipv4, 89, ospf2 },
   Protocol{ "ospfv3", Carrier::ipv6, 89, ospf3 },
   Protocol{ "bfd", Carrier::udp4, 3784, bfd },
   Protocol{ "bfd", Carrier::udp4, 4784, bfd },
   Protocol{ "bfd", Carrier::udp6, 3784, bfd },
   Protocol{ "bfd", Carrier::udp6, 4784, bfd },
   Protocol{ "pim", Carrier::ipv4, 103, pim },
   Protocol{ "pim", Carrier::ipv6, 103, pim },
   Protocol{ "eigrp", Carrier::ipv4, 88, eigrp },
   Protocol{ "eigrp", Carrier::ipv6, 88, eigrp },
   Protocol{ "rip", Carrier::udp4, 520, rip },
   Protocol{ "ripng", Carrier::udp6, 521, ripng },
   Protocol{ "mdns", Carrier::udp4, 5353, mdns },
   Protocol{ "mdns", Carrier::udp6, 5353, mdns },
   Protocol{ "igmp", Carrier::ipv4, 2, igmp },
   Protocol{ "mld", Carrier::icmp6, 131, mld },
   Protocol{ "mld", Carrier::icmp6, 132, mld },
   Protocol{ "mld", Carrier::icmp6, 143, mld },
};

Protocol const * protocolOf( Layers const & layers ) {
   auto const * const found =
      std::find_if( protocols.begin(), protocols.end(), [ & ]( Protocol const & protocol ) {
         return protocol.carrier == layers.carrier && protocol.number == layers.number;
      } );
   return found == protocols.end() ? nullptr : found;
}

} // namespace

std::optional< std::variant< Heard, Malformed > > derive( std::string_view frame ) {
   auto const layers = layersOf( frame );
   auto const * const protocol = layers ? protocolOf( *layers ) : nullptr;
   if ( protocol == nullptr ) {
      return std::nullopt;
   }
   try {
      auto packet = packetOf( frame, *layers );
      auto heard = protocol->parse( packet );
      if ( !heard ) {
         return std::nullopt;
      }
      heard->protocol = protocol->name;
      heard->greeting = std::move( packet.frame );
      return *std::move( heard );
   } catch ( Refused const & refused ) {
      return Malformed{ protocol->name, refused.reason() };
   }
}

} // namespace Derivation
