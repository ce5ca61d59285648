#include "egress/Mutes.h"

#include <algorithm>
#include <array>
#include <bpf/bpf.h>
#include <cerrno>

namespace Egress {

namespace {

// By kind.
constexpr std::array< std::string_view, EGRESS_KINDS > protocols{
   "none",  "lldp", "ra",    "vrrp", "ospf", "ospfv3", "bfd", "pim",  "lacp", "rip",
   "ripng", "isis", "eigrp", "mdns", "igmp", "mld",    "cdp", "hsrp", "oam" };

egress_mute muteUntil( Mutes::Time until ) noexcept {
   egress_mute mute{};
   mute.until = static_cast< U64 >(
      std::chrono::duration_cast< std::chrono::nanoseconds >( until.time_since_epoch() ).count() );
   return mute;
}

} // namespace

std::optional< Speaker > speakerOf( std::string_view frame, U32 filter, U32 ifIndex ) {
   egress_head head{};
   std::copy_n( frame.begin(), std::min< std::size_t >( frame.size(), EGRESS_HEAD ), head.bytes );
   Speaker speaker{};
   speaker.filter = filter;
   speaker.ifindex = ifIndex;
   if ( egress_classify( &head, 0, &speaker ) == EGRESS_NO_KIND ) {
      return std::nullopt;
   }
   return speaker;
}

std::string_view protocolOf( Speaker const & speaker ) {
   return protocols.at( speaker.kind );
}

std::string_view identityOf( Speaker const & speaker ) {
   return { reinterpret_cast< char const * >( speaker.identity ), sizeof speaker.identity };
}

std::optional< Speaker > speakerOf( std::string_view protocol, U16 vlan, std::string_view identity,
                                    U32 filter, U32 ifIndex ) {
   Speaker speaker{};
   auto const name = std::find( protocols.begin() + 1, protocols.end(), protocol );
   if ( name == protocols.end() || identity.size() != sizeof speaker.identity ) {
      return std::nullopt;
   }
   speaker.filter = filter;
   speaker.ifindex = ifIndex;
   speaker.kind = static_cast< U16 >( name - protocols.begin() );
   speaker.vlan = vlan;
   std::copy( identity.begin(), identity.end(), speaker.identity );
   return speaker;
}

void Mutes::mute( Speaker const & speaker, Time until ) {
   auto const mute = muteUntil( until );
   if ( ::bpf_map_update_elem( map_.get(), &speaker, &mute, BPF_ANY ) != 0 ) {
      Valen::Linux::throwErrno( "cannot mute " + std::string( protocolOf( speaker ) ), errno );
   }
}

U64 Mutes::renew( Speaker const & speaker, Time until ) noexcept {
   egress_mute before{};
   auto const after = muteUntil( until );
   if ( ::bpf_map_lookup_elem( map_.get(), &speaker, &before ) != 0 ||
        ::bpf_map_update_elem( map_.get(), &speaker, &after, BPF_EXIST ) != 0 ) {
      return 0;
   }
   return before.dropped;
}

U64 Mutes::unmute( Speaker const & speaker ) noexcept {
   egress_mute mute{};
   if ( ::bpf_map_lookup_elem( map_.get(), &speaker, &mute ) != 0 ) {
      return 0;
   }
   ::bpf_map_delete_elem( map_.get(), &speaker );
   return mute.dropped;
}

} // namespace Egress
