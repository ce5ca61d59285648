#include "valenctl/FrameKinds.h"

namespace Valenctl {

namespace {

using Source = FrameKind::Source;

constexpr FrameKind kinds[] = {
   { "lldp", "LLDP shutdown: a time to live of 0", "IEEE 802.1AB-2016, 8.5.4",
     "The neighbour forgets at once all that it learned of the port, instead of when the time to\n"
     "live runs out (usually 120 s). It knows the port by chassis and port id: give those that "
     "the\n"
     "LLDP agent tells.",
     Source::mac, lldpBuild },
   { "ra", "IPv6 router advertisement: a router lifetime of 0", "RFC 4861, 6.2.5 and 6.3.4",
     "Hosts take the router off their list of default routers at once and use another, instead of\n"
     "when its lifetime runs out (usually 1800 s).",
     Source::ipv6, raBuild },
   { "vrrp2", "VRRP version 2: priority 0", "RFC 3768, 6.4.2 and 6.4.3",
     "A backup takes over within its skew time, less than a second, instead of after three missed\n"
     "advertisements. The frame comes from the virtual router's MAC address unless --mac is given.",
     Source::ipv4, vrrp2Build },
   { "vrrp3", "VRRP version 3: priority 0", "RFC 5798, 6.4.2 and 6.4.3",
     "A backup takes over within its skew time, less than one interval, instead of after three\n"
     "missed advertisements. The frame comes from the virtual router's MAC address unless --mac\n"
     "is given.",
     Source::either, vrrp3Build },
   { "pim", "PIM Hello: a hold time of 0", "RFC 7761, 4.3.1 and 4.9.2",
     "Neighbours forget the router at once, elect another designated router and join elsewhere,\n"
     "instead of when the hold time runs out (usually 105 s).",
     Source::either, pimBuild },
   { "ospf", "OSPFv2 Hello: an empty list of neighbours", "RFC 2328, 10.5",
     "A neighbour no longer finds itself in the list: it drops the adjacency at once and floods a\n"
     "new router LSA, instead of after the dead interval. It ignores a Hello whose area, mask or\n"
     "intervals are not its own, and one without its authentication.",
     Source::ipv4, ospfBuild },
   { "igmp", "IGMP leave, of version 2 or 3", "RFC 2236, 3; RFC 3376, 5.1 and 6.4.2",
     "The querier asks whether anybody else listens, and stops forwarding the group when nobody\n"
     "answers (usually 2 s), instead of when the membership runs out (usually 260 s).",
     Source::ipv4, igmpBuild },
   { "mdns", "Multicast DNS goodbye: records with a time to live of 0", "RFC 6762, 10.1",
     "Hosts delete the records after one second, instead of when their time to live runs out\n"
     "(usually 120 s, services 75 minutes).",
     Source::either, mdnsBuild },
   { "rip", "RIPv2 response: routes with the metric 16", "RFC 2453, 3.8 and 3.9.2",
     "Neighbours that use these routes through this router stop doing so and tell theirs at once,\n"
     "instead of when the routes time out (180 s).",
     Source::ipv4, ripBuild },
   { "oam", "802.3ah OAM: dying gasp", "IEEE 802.3-2018, 57.2.10 and 57.4.2.1",
     "The peer reports that this end is going down on purpose or for want of power, not that the\n"
     "link is broken.",
     Source::mac, oamBuild },
   { "lacp", "LACP: out of synchronisation, not collecting, not distributing",
     "IEEE 802.1AX-2014, 6.4.2.3 and 6.4.15",
     "The partner takes the link out of its aggregation at once and sends on the others, instead\n"
     "of when its timer runs out (3 s or 90 s).",
     Source::mac, lacpBuild },
};

} // namespace

std::span< FrameKind const > frameKinds() {
   return kinds;
}

} // namespace Valenctl
