#include "egress/Mutes.h"

#include <algorithm>
#include <array>
#include <bpf/bpf.h>
#include <cerrno>

namespace Egress {

namespace {

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
   static constexpr std::array< std::string_view, EGRESS_KINDS > names{
      "none",  "lldp", "ra",    "vrrp", "ospf", "ospfv3", "bfd", "pim",  "lacp", "rip",
      "ripng", "isis", "eigrp", "mdns", "igmp", "mld",    "cdp", "hsrp", "oam" };
   return names.at( speaker.kind );
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
