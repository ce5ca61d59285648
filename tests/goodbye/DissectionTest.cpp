// Every kind of frame, built from options and checked by an independent dissector.
#include "tests/goodbye/FrameTest.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class DissectionTest : public FrameTest {
 protected:
   // A command for `kind` with the usual addresses and further arguments.
   static Texts ipv4( std::string const & kind, Texts arguments ) {
      arguments.insert( arguments.begin(), { kind, "--mac", mac, "--ip", "192.0.2.1/24" } );
      return arguments;
   }
   static Texts ipv6( std::string const & kind, Texts arguments ) {
      arguments.insert( arguments.begin(), { kind, "--mac", mac, "--ip", "fe80::1" } );
      return arguments;
   }

   static inline std::string const mac = "02:00:00:00:00:01";
};

TEST_F( DissectionTest, LldpHasATimeToLiveOf0ForItsChassisAndPort ) {
   Texts const fields{ "lldp.time_to_live", "lldp.chassis.subtype", "lldp.chassis.id.mac",
                       "lldp.chassis.id",   "lldp.port.subtype",    "lldp.port.id.mac",
                       "lldp.port.id",      "lldp.tlv.type" };
   EXPECT_THAT( dissect( { { "lldp", "--mac", mac, "--port-id", "name:eth1" },
                           { "lldp", "--mac", mac, "--chassis-id", "local:core", "--port-id",
                             "mac:02:00:00:00:00:02", "--destination", "01:80:c2:00:00:00" } },
                         fields ),
                ElementsAre( "60 01:80:c2:00:00:0e 02:00:00:00:00:01 0 4 02:00:00:00:00:01  5  "
                             "eth1 1,2,3,0",
                             "60 01:80:c2:00:00:00 02:00:00:00:00:01 0 7  636f7265 3 "
                             "02:00:00:00:00:02  1,2,3,0" ) );
}

TEST_F( DissectionTest, TheRouterAdvertisementHasALifetimeOf0 ) {
   EXPECT_THAT(
      dissect( { ipv6( "ra", {} ) },
               { "ipv6.src", "ipv6.dst", "ipv6.hlim", "icmpv6.type", "icmpv6.nd.ra.router_lifetime",
                 "icmpv6.opt.src_linkaddr", "icmpv6.checksum.status" } ),
      ElementsAre( "78 33:33:00:00:00:01 02:00:00:00:00:01 fe80::1 ff02::1 255 134 0 "
                   "02:00:00:00:00:01 1" ) );
}

TEST_F( DissectionTest, Vrrp2ResignsFromTheVirtualRoutersMacOrAnother ) {
   Texts const fields{ "ip.src",
                       "ip.dst",
                       "ip.ttl",
                       "vrrp.version",
                       "vrrp.prio",
                       "vrrp.virt_rtr_id",
                       "vrrp.adver_int",
                       "vrrp.ip_addr",
                       "vrrp.auth_type",
                       "vrrp.checksum.status",
                       "ip.checksum.status" };
   EXPECT_THAT(
      dissect( { { "vrrp2", "--ip", "192.0.2.1", "--vrid", "7", "--address", "192.0.2.254" },
                 ipv4( "vrrp2", { "--vrid", "255", "--interval", "3", "--address", "192.0.2.254",
                                  "--address", "192.0.2.253" } ) },
               fields ),
      ElementsAre( "60 01:00:5e:00:00:12 00:00:5e:00:01:07 192.0.2.1 224.0.0.18 255 2 0 7 1 "
                   "192.0.2.254 0 1 1",
                   "60 01:00:5e:00:00:12 02:00:00:00:00:01 192.0.2.1 224.0.0.18 255 2 0 255 3 "
                   "192.0.2.254,192.0.2.253 0 1 1" ) );
}

TEST_F( DissectionTest, Vrrp3ResignsOverIpv4AndIpv6 ) {
   Texts const fields{ "vrrp.version",     "vrrp.prio",
                       "vrrp.virt_rtr_id", "vrrp.short_adver_int",
                       "vrrp.addr_count",  "vrrp.checksum.status",
                       "ip.src",           "ip.dst",
                       "ip.ttl",           "vrrp.ip_addr",
                       "ipv6.src",         "ipv6.dst",
                       "ipv6.hlim",        "vrrp.ipv6_addr" };
   EXPECT_THAT(
      dissect( { { "vrrp3", "--ip", "192.0.2.1", "--vrid", "7", "--address", "192.0.2.254" },
                 { "vrrp3", "--ip", "fe80::1", "--vrid", "7", "--interval", "0.29", "--address",
                   "fe80::7", "--address", "2001:db8::7" } },
               fields ),
      ElementsAre( "60 01:00:5e:00:00:12 00:00:5e:00:01:07 3 0 7 100 1 1 192.0.2.1 224.0.0.18 255 "
                   "192.0.2.254",
                   "94 33:33:00:00:00:12 00:00:5e:00:02:07 3 0 7 29 2 1     fe80::1 ff02::12 255 "
                   "fe80::7,2001:db8::7" ) );
}

TEST_F( DissectionTest, ThePimHelloHasAHoldTimeOf0 ) {
   EXPECT_THAT( dissect( { ipv4( "pim", {} ), ipv6( "pim", {} ) },
                         { "pim.type", "pim.optiontype", "pim.holdtime", "pim.cksum.status",
                           "ip.src", "ip.dst", "ip.ttl", "ipv6.src", "ipv6.dst", "ipv6.hlim" } ),
                ElementsAre( "60 01:00:5e:00:00:0d 02:00:00:00:00:01 0 1 0 1 192.0.2.1 224.0.0.13 "
                             "1",
                             "64 33:33:00:00:00:0d 02:00:00:00:00:01 0 1 0 1    fe80::1 ff02::d "
                             "1" ) );
}

TEST_F( DissectionTest, TheOspfHelloListsNoNeighbor ) {
   Texts const fields{ "ip.dst",
                       "ip.ttl",
                       "ospf.msg",
                       "ospf.packet_length",
                       "ospf.srcrouter",
                       "ospf.area_id",
                       "ospf.hello.network_mask",
                       "ospf.hello.hello_interval",
                       "ospf.hello.router_dead_interval",
                       "ospf.hello.designated_router",
                       "ospf.v2.options",
                       "ospf.hello.active_neighbor" };
   std::vector< Texts > const hellos{
      ipv4( "ospf", { "--router-id", "10.0.0.1" } ),
      ipv4( "ospf", { "--router-id", "10.0.0.1", "--area", "0.0.0.3", "--hello-interval", "1",
                      "--dead-interval", "100000", "--stub" } ) };
   EXPECT_THAT( dissect( hellos, fields ),
                ElementsAre( "78 01:00:5e:00:00:05 02:00:00:00:00:01 224.0.0.5 1 1 44 10.0.0.1 "
                             "0.0.0.0 255.255.255.0 10 40 0.0.0.0 0x02",
                             "78 01:00:5e:00:00:05 02:00:00:00:00:01 224.0.0.5 1 1 44 10.0.0.1 "
                             "0.0.0.3 255.255.255.0 1 100000 0.0.0.0 0x00" ) );
   // The dissector does not report the state of this checksum in a field.
   EXPECT_THAT( details( capture( { hellos[ 0 ] } ) ), HasSubstr( "Checksum: 0xf29e [correct]" ) );
}

TEST_F( DissectionTest, IgmpLeavesEachGroupWithARouterAlert ) {
   Texts const fields{ "ip.dst",
                       "ip.ttl",
                       "ip.opt.ra",
                       "igmp.type",
                       "igmp.maddr",
                       "igmp.record_type",
                       "igmp.num_src",
                       "igmp.checksum.status",
                       "ip.checksum.status" };
   Texts const groups{ "--group", "239.1.1.1", "--group", "239.129.1.2" };
   auto version2 = groups;
   version2.insert( version2.end(), { "--version", "2" } );
   EXPECT_THAT( dissect( { ipv4( "igmp", groups ), ipv4( "igmp", version2 ) }, fields ),
                ElementsAre( "62 01:00:5e:00:00:16 02:00:00:00:00:01 224.0.0.22 1 0 0x22 "
                             "239.1.1.1,239.129.1.2 3,3 0,0 1 1",
                             "60 01:00:5e:00:00:02 02:00:00:00:00:01 224.0.0.2 1 0 0x17 239.1.1.1 "
                             "  1 1",
                             "60 01:00:5e:00:00:02 02:00:00:00:00:01 224.0.0.2 1 0 0x17 "
                             "239.129.1.2   1 1" ) );
}

TEST_F( DissectionTest, MdnsRecordsHaveATimeToLiveOf0 ) {
   Texts const fields{
      "udp.srcport", "udp.dstport", "udp.checksum.status", "dns.flags.response", "ip.dst",
      "ip.ttl",      "ipv6.dst",    "ipv6.hlim",           "dns.resp.name",      "dns.resp.ttl",
      "dns.a",       "dns.aaaa",    "dns.ptr.domain_name" };
   EXPECT_THAT(
      dissect( { ipv4( "mdns", { "--name", "router.local", "--pointer",
                                 "_http._tcp.local=web._http._tcp.local", "--address", "192.0.2.9",
                                 "--address", "fe80::9" } ),
                 ipv6( "mdns", { "--name", "router.local." } ) },
               fields ),
      ElementsAre( "172 01:00:5e:00:00:fb 02:00:00:00:00:01 5353 5353 1 1 224.0.0.251 255   "
                   "_http._tcp.local,router.local,router.local 0,0,0 192.0.2.9 fe80::9 "
                   "web._http._tcp.local",
                   "114 33:33:00:00:00:fb 02:00:00:00:00:01 5353 5353 1 1   ff02::fb 255 "
                   "router.local 0  fe80::1" ) );
}

TEST_F( DissectionTest, RipPoisonsEachNetwork ) {
   Texts const fields{
      "ip.dst",      "ip.ttl",      "udp.srcport", "udp.dstport", "udp.checksum.status",
      "rip.command", "rip.version", "rip.ip",      "rip.netmask", "rip.metric" };
   EXPECT_THAT(
      dissect( { ipv4( "rip", { "--route", "198.51.100.77/24", "--route", "0.0.0.0/0" } ) },
               fields ),
      ElementsAre( "86 01:00:5e:00:00:09 02:00:00:00:00:01 224.0.0.9 1 520 520 1 2 2 "
                   "198.51.100.0,0.0.0.0 255.255.255.0,0.0.0.0 16,16" ) );
}

TEST_F( DissectionTest, LongListsTakeSeveralFrames ) {
   Texts routes, groups;
   for ( int i = 0; i < 51; ++i ) {
      routes.insert( routes.end(), { "--route", "10.0." + std::to_string( i ) + ".0/24" } );
   }
   for ( int i = 0; i < 184; ++i ) {
      groups.insert( groups.end(), { "--group", "239.0.0." + std::to_string( i ) } );
   }
   EXPECT_THAT( dissect( { ipv4( "rip", routes ), ipv4( "igmp", groups ) },
                         { "udp.length", "igmp.num_grp_recs" } ),
                ElementsAre( "546 01:00:5e:00:00:09 02:00:00:00:00:01 512",
                             "546 01:00:5e:00:00:09 02:00:00:00:00:01 512",
                             "66 01:00:5e:00:00:09 02:00:00:00:00:01 32",
                             "1510 01:00:5e:00:00:16 02:00:00:00:00:01  183",
                             "60 01:00:5e:00:00:16 02:00:00:00:00:01  1" ) );
}

TEST_F( DissectionTest, TheOamFlagsHaveDyingGasp ) {
   EXPECT_THAT(
      dissect( { { "oam", "--mac", mac }, { "oam", "--mac", mac, "--passive", "--revision", "9" } },
               { "slow.subtype", "oampdu.flags", "oampdu.code", "oampdu.info.type",
                 "oampdu.info.revision", "oampdu.info.oamConfig.mode" } ),
      // 0x0002 is the dying gasp; the other bits mean that discovery is complete.
      ElementsAre( "60 01:80:c2:00:00:02 02:00:00:00:00:01 0x03 0x0052 0x00 0x01 0 1",
                   "60 01:80:c2:00:00:02 02:00:00:00:00:01 0x03 0x0052 0x00 0x01 9 "
                   "0" ) );
}

TEST_F( DissectionTest, TheLacpActorIsOutOfSync ) {
   Texts const fields{ "slow.subtype",
                       "lacp.version",
                       "lacp.actor.sysid",
                       "lacp.actor.sys_priority",
                       "lacp.actor.key",
                       "lacp.actor.port",
                       "lacp.actor.port_priority",
                       "lacp.actor.state.synchronization",
                       "lacp.actor.state.collecting",
                       "lacp.actor.state.distributing",
                       "lacp.actor.state" };
   EXPECT_THAT( dissect( { { "lacp", "--mac", mac },
                           { "lacp", "--mac", mac, "--system", "02:00:00:00:00:99",
                             "--system-priority", "7", "--key", "15", "--port", "2",
                             "--port-priority", "8", "--passive", "--short-timeout" } },
                         fields ),
                ElementsAre( "124 01:80:c2:00:00:02 02:00:00:00:00:01 0x01 0x01 02:00:00:00:00:01 "
                             "65535 1 1 255 0 0 0 0x05",
                             "124 01:80:c2:00:00:02 02:00:00:00:00:01 0x01 0x01 02:00:00:00:00:99 "
                             "7 15 2 8 0 0 0 0x06" ) );
}

// A check must be able to fail: changes one byte of each checksum.
TEST_F( DissectionTest, TheDissectorDetectsDamagedFrames ) {
   struct Case {
      Texts arguments;
      std::size_t byte; // in the frame's checksum
   };
   auto const vrrp3 = ipv4( "vrrp3", { "--vrid", "1", "--address", "192.0.2.9" } );
   std::string all;
   std::size_t count = 0;
   for ( auto const & [ arguments, byte ] :
         { Case{ ipv6( "ra", {} ), 56 },
           Case{ ipv4( "vrrp2", { "--vrid", "1", "--address", "192.0.2.9" } ), 40 },
           Case{ vrrp3, 40 }, Case{ vrrp3, 24 }, // of IPv4
           Case{ ipv4( "pim", {} ), 36 }, Case{ ipv6( "pim", {} ), 56 },
           Case{ ipv4( "igmp", { "--group", "239.1.1.1" } ), 40 },
           Case{ ipv4( "mdns", { "--name", "a.local" } ), 40 },
           Case{ ipv4( "rip", { "--route", "10.0.0.0/8" } ), 40 } } ) {
      constexpr std::size_t fileHeader = 24, frameHeader = 16;
      auto content = capture( { arguments } );
      auto & damaged = content.at( fileHeader + frameHeader + byte );
      damaged = static_cast< char >( damaged ^ 0x55 );
      all += all.empty() ? content : content.substr( fileHeader );
      ++count;
   }
   auto const seen = complaints( all );
   EXPECT_EQ( seen.size(), count );
   EXPECT_THAT( seen, Each( Not( "" ) ) );
}

} // namespace
} // namespace Valen::Test
