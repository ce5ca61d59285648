#include "valenctl/frame/FrameKinds.h"

namespace Valenctl {

namespace {

using Source = FrameKind::Source;

constexpr FrameKind kinds[] = {
   { "lldp", "LLDP shutdown: a time to live of 0", "IEEE 802.1AB-2016, 8.5.4",
     "The neighbor forgets at once what it learned about the port, instead of when the time to\n"
     "live expires (usually 120 s). It identifies the port by chassis and port ID: give the ones\n"
     "that the LLDP agent sends.",
     Source::mac, lldpBuild },
   { "ra", "IPv6 router advertisement: a router lifetime of 0", "RFC 4861, 6.2.5 and 6.3.4",
     "Hosts remove the router from their default routers and switch to another at once, instead "
     "of\n"
     "when its lifetime expires (usually 1800 s).",
     Source::ipv6, raBuild },
   { "vrrp2", "VRRP version 2: priority 0", "RFC 3768, 6.4.2 and 6.4.3",
     "A backup takes over within its skew time, less than a second, instead of after three missed\n"
     "advertisements. The source is the virtual router's MAC address unless --mac is given.",
     Source::ipv4, vrrp2Build },
   { "vrrp3", "VRRP version 3: priority 0", "RFC 5798, 6.4.2 and 6.4.3",
     "A backup takes over within its skew time, less than one interval, instead of after three\n"
     "missed advertisements. The source is the virtual router's MAC address unless --mac is given.",
     Source::either, vrrp3Build },
   { "pim", "PIM Hello: a hold time of 0", "RFC 7761, 4.3.1 and 4.9.2",
     "Neighbors forget the router at once, elect another designated router and join elsewhere,\n"
     "instead of when the hold time expires (usually 105 s).",
     Source::either, pimBuild },
   { "ospf", "OSPFv2 Hello: an empty list of neighbors", "RFC 2328, 10.5",
     "A neighbor no longer finds itself in the list: it drops the adjacency at once and floods a\n"
     "new router LSA, instead of after the dead interval. It ignores a Hello whose area, mask,\n"
     "intervals or authentication differ from its own.",
     Source::ipv4, ospfBuild },
   { "igmp", "IGMP leave, of version 2 or 3", "RFC 2236, 3; RFC 3376, 5.1 and 6.4.2",
     "The querier asks for other listeners and stops forwarding the group when none answers\n"
     "(usually after 2 s), instead of when the membership expires (usually 260 s).",
     Source::ipv4, igmpBuild },
   { "mdns", "Multicast DNS goodbye: records with a time to live of 0", "RFC 6762, 10.1",
     "Hosts delete the records after one second, instead of when their time to live expires\n"
     "(usually 120 s, or 75 minutes for services).",
     Source::either, mdnsBuild },
   { "rip", "RIPv2 response: routes with the metric 16", "RFC 2453, 3.8 and 3.9.2",
     "Neighbors that use these routes through this router drop them and notify their own "
     "neighbors\n"
     "at once, instead of when the routes time out (180 s).",
     Source::ipv4, ripBuild },
   { "oam", "802.3ah OAM: dying gasp", "IEEE 802.3-2018, 57.2.10 and 57.4.2.1",
     "The peer reports that this end is going down on purpose or for lack of power, instead of a\n"
     "broken link.",
     Source::mac, oamBuild },
   { "lacp", "LACP: out of synchronization, not collecting, not distributing",
     "IEEE 802.1AX-2014, 6.4.2.3 and 6.4.15",
     "The partner removes the link from its aggregation at once and uses the others, instead of\n"
     "when its timer expires (3 s or 90 s).",
     Source::mac, lacpBuild },
};

} // namespace

std::span< FrameKind const > frameKinds() {
   return kinds;
}

} // namespace Valenctl
