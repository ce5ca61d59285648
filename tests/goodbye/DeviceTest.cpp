// Frames with the addresses of a device, in a namespace of the test, and the errors in doing so.
#include "tests/goodbye/FrameTest.h"

#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using ::testing::ElementsAre;

class DeviceTest : public FrameTest {
 protected:
   void SetUp() override {
      if ( ::geteuid() != 0 && !std::getenv( "CI" ) ) {
         GTEST_SKIP() << "creating network namespaces needs root";
      }
      sweepNamespaces();
      router_.emplace();
      router_->ip( "link add et1 address 02:00:00:00:00:11 type veth peer name bare" );
      router_->ip( "link set et1 addrgenmode none" );
      router_->ip( "link set et1 up" );
      router_->ip( "address add 2001:db8::11/64 dev et1" );
      router_->ip( "address add fe80::11/64 dev et1 nodad" );
      router_->ip( "address add 192.0.2.11/26 dev et1" );
      router_->ip( "address add 198.51.100.11/24 dev et1" );
   }

   Texts from( std::string const & kind, Texts arguments = {} ) const {
      arguments.insert( arguments.begin(), { kind, "--device", "et1", "--netns", name() } );
      return arguments;
   }
   std::string const & name() const { return router_->text(); }

   // Expects a command to fail, with this text.
   void expectError( Texts const & arguments, int status, std::string const & text ) const {
      auto const result = frame( arguments );
      EXPECT_EQ( result.status, status ) << text;
      EXPECT_EQ( result.out, "" );
      EXPECT_EQ( result.err, text );
   }
   // The text of an error in the command line, with its reference to --help.
   void expectUsage( Texts const & arguments, std::string const & text ) const {
      expectError( arguments, 2,
                   "valenctl: " + text + "\nRun \"valenctl frame " + arguments.front() +
                      " --help\" for more information.\n" );
   }

   std::optional< TestNetNs > router_;
};

TEST_F( DeviceTest, TheDeviceGivesItsMac ) {
   EXPECT_THAT( dissect( { from( "oam" ), from( "lacp" ) }, { "lacp.actor.sysid" } ),
                ElementsAre( "60 01:80:c2:00:00:02 02:00:00:00:00:11",
                             "124 01:80:c2:00:00:02 02:00:00:00:00:11 02:00:00:00:00:11" ) );
}

TEST_F( DeviceTest, TheDeviceGivesItsFirstIpv4AddressAndItsMask ) {
   EXPECT_THAT(
      dissect( { from( "ospf", { "--router-id", "10.0.0.1" } ),
                 from( "vrrp2", { "--vrid", "9", "--address", "192.0.2.9" } ), from( "pim" ) },
               { "ip.src", "ospf.hello.network_mask" } ),
      ElementsAre( "78 01:00:5e:00:00:05 02:00:00:00:00:11 192.0.2.11 255.255.255.192",
                   "60 01:00:5e:00:00:12 00:00:5e:00:01:09 192.0.2.11",
                   "60 01:00:5e:00:00:0d 02:00:00:00:00:11 192.0.2.11" ) );
}

TEST_F( DeviceTest, TheDeviceGivesItsLinkLocalAddress ) {
   EXPECT_THAT( dissect( { from( "ra" ), from( "pim", { "-6" } ),
                           from( "vrrp3", { "--vrid", "9", "--address", "fe80::9" } ) },
                         { "ipv6.src" } ),
                ElementsAre( "78 33:33:00:00:00:01 02:00:00:00:00:11 fe80::11",
                             "64 33:33:00:00:00:0d 02:00:00:00:00:11 fe80::11",
                             "78 33:33:00:00:00:12 00:00:5e:00:02:09 fe80::11" ) );
}

TEST_F( DeviceTest, AddressesOfAHostAreThoseOfTheDevice ) {
   EXPECT_THAT( dissect( { from( "mdns", { "--name", "router.local" } ) },
                         { "ip.src", "dns.a", "dns.aaaa" } ),
                ElementsAre( "122 01:00:5e:00:00:fb 02:00:00:00:00:11 192.0.2.11 192.0.2.11 "
                             "fe80::11" ) );
}

TEST_F( DeviceTest, OptionsTakePrecedenceOverTheDevice ) {
   EXPECT_THAT(
      dissect( { from( "pim", { "--mac", "02:00:00:00:00:77" } ),
                 from( "pim", { "--ip", "192.0.2.77" } ), from( "pim", { "--ip", "fe80::77" } ) },
               { "ip.src", "ipv6.src" } ),
      ElementsAre( "60 01:00:5e:00:00:0d 02:00:00:00:00:77 192.0.2.11",
                   "60 01:00:5e:00:00:0d 02:00:00:00:00:11 192.0.2.77",
                   "64 33:33:00:00:00:0d 02:00:00:00:00:11  fe80::77" ) );
}

TEST_F( DeviceTest, ANamespaceMayBeAPath ) {
   EXPECT_EQ( frame( { "oam", "--device", "et1", "--netns", "/run/netns/" + name() } ).out,
              frame( { "oam", "--mac", "02:00:00:00:00:11" } ).out );
}

TEST_F( DeviceTest, AMissingDeviceNamespaceOrAddressIsReported ) {
   expectError( { "oam", "--device", "et9", "--netns", name() }, 1,
                "valenctl: there is no device et9 in network namespace " + name() + "\n" );
   expectError( { "oam", "--device", "et9" }, 1, "valenctl: there is no device et9\n" );
   expectError( { "oam", "--device", "et1", "--netns", "vt-none" }, 1,
                "valenctl: cannot open network namespace vt-none: No such file or "
                "directory\n" );
   expectError( { "oam", "--device", "et1", "--netns", "/dev/null" }, 1,
                "valenctl: cannot enter network namespace /dev/null: Invalid argument\n" );
   auto const in = [ & ]( Texts arguments ) {
      arguments.insert( arguments.end(), { "--netns", name() } );
      return arguments;
   };
   expectError( in( { "rip", "--device", "bare", "--route", "10.0.0.0/8" } ), 1,
                "valenctl: device bare has no IPv4 address\n" );
   expectError( in( { "ra", "--device", "bare" } ), 1,
                "valenctl: device bare has no link-local IPv6 address\n" );
   expectError( in( { "oam", "--device", "lo" } ), 1, "valenctl: device lo has no MAC address\n" );
}

TEST_F( DeviceTest, AMissingOptionIsNamed ) {
   expectError( { "oam" }, 2,
                "valenctl: the frame needs the sender's MAC address: give --mac, or --device to "
                "take it from\n" );
   expectError( { "pim", "--mac", "02:00:00:00:00:01" }, 2,
                "valenctl: the frame needs the sender's IPv4 address: give --ip, or --device to "
                "take it from\n" );
   expectError( { "ra", "--mac", "02:00:00:00:00:01" }, 2,
                "valenctl: the frame needs the sender's link-local IPv6 address: give --ip, or "
                "--device to take it from\n" );
   expectError( { "lldp", "--mac", "02:00:00:00:00:01" }, 2,
                "valenctl: the frame needs the port's ID: give --port-id, or --device\n" );
   expectError( from( "mdns" ), 2,
                "valenctl: the frame needs records to withdraw: give --name or --pointer\n" );
   expectError( from( "mdns", { "--pointer", "a.local=b.local", "--address", "192.0.2.1" } ), 2,
                "valenctl: the addresses need the host's name: give --name\n" );
   expectError(
      from( "vrrp3", { "--vrid", "1", "--address", "fe80::1", "--address", "192.0.2.1" } ), 2,
      "valenctl: a virtual router has IPv4 or IPv6 addresses, not both\n" );
   Texts addresses{ "--vrid", "1" };
   for ( int i = 0; i < 91; ++i ) {
      addresses.insert( addresses.end(), { "--address", "192.0.2." + std::to_string( i ) } );
   }
   expectError( from( "vrrp2", addresses ), 2,
                "valenctl: the virtual router has 91 addresses; at most 90 fit\n" );
}

TEST_F( DeviceTest, AnInvalidOptionIsNamed ) {
   expectUsage( { "oam", "--mac", "02:00" },
                "--mac: \"02:00\" is not a MAC address such as 02:00:00:00:00:01" );
   expectUsage( { "pim", "--ip", "192.0.2" }, "--ip: \"192.0.2\" is not an IPv4 address" );
   expectUsage( { "ospf", "--ip", "fe80::1" }, "--ip: \"fe80::1\" is not an IPv4 address" );
   expectUsage( { "ra", "--ip", "192.0.2.1" }, "--ip: \"192.0.2.1\" is not an IPv6 address" );
   expectUsage( { "ra", "--ip", "2001:db8::1" },
                "--ip: \"2001:db8::1\" is not link-local; expected one in fe80::/10" );
   expectUsage( { "igmp", "--group", "192.0.2.1" },
                "--group: \"192.0.2.1\" is not a multicast address" );
   expectUsage( { "igmp" }, "--group is required" );
   expectUsage( { "oam", "--netns", "red" }, "--netns requires --device" );
   expectUsage( { "oam", "--mac", "02:00:00:00:00:01", "--mac", "02:00:00:00:00:01" },
                "--mac: At Most 1 required but received 2" );
   expectUsage( { "vrrp2", "--vrid", "0", "--address", "192.0.2.1" },
                "--vrid: Value 0 not in range 1 to 255" );
   expectUsage( { "lacp", "--key", "65536" }, "Could not convert: --key = 65536" );
   expectError( {}, 2,
                "valenctl: frame kind missing\n"
                "Run \"valenctl frame --help\" for more information.\n" );
   expectError( { "wave" }, 2,
                "valenctl: unknown frame kind \"wave\"\n"
                "Run \"valenctl frame --help\" for more information.\n" );
}

} // namespace
} // namespace Valen::Test
