#include "linux/MulticastGroups.h"

#include "tests/linux/TestNetwork.h"

#include <gmock/gmock.h>

namespace Valen::Linux {
namespace {

using Test::TestNetNs;
using ::testing::Contains;
using ::testing::Not;

std::string address( int family, char const * text ) {
   std::string bytes( family == AF_INET ? 4 : 16, '\0' );
   EXPECT_EQ( ::inet_pton( family, text, bytes.data() ), 1 );
   return bytes;
}

class MulticastGroupsTest : public Test::NetworkTest {};

TEST_F( MulticastGroupsTest, AreThoseOfTheDeviceInItsNamespace ) {
   TestNetNs const near, far;
   near.veth( "et1", far, "far1" );
   near.ip( "link set et1 address 02:00:00:00:00:07 mtu 1400" );
   near.ip( "address add 192.0.2.1/24 dev et1" );
   near.ip( "address add 198.51.100.1/24 dev et1" );
   near.ip( "address add fe80::7/64 dev et1 nodad" );
   near.ip( "address add 239.1.2.3/32 dev et1 autojoin" );
   near.ip( "address add ff35::7/128 dev et1 autojoin nodad" );
   auto const opened = NetNsDirectories().open( near.name() );

   auto const all = multicastGroups( opened, { near.index( "et1" ), near.index( "lo" ) } );
   ASSERT_EQ( all.size(), 2u );
   auto const & found = all.at( near.index( "et1" ) );
   EXPECT_EQ( found.mac, std::string( "\x02\0\0\0\0\x07", 6 ) );
   EXPECT_EQ( found.mtu, 1400u );
   EXPECT_EQ( found.ipv4, address( AF_INET, "192.0.2.1" ) );
   EXPECT_EQ( found.linkLocal.substr( 0, 2 ), "\xfe\x80" );
   EXPECT_EQ( found.igmpVersion, 3 );
   EXPECT_THAT( found.groups, Contains( address( AF_INET, "224.0.0.1" ) ) );
   EXPECT_THAT( found.groups, Contains( address( AF_INET, "239.1.2.3" ) ) );
   EXPECT_THAT( found.groups, Contains( address( AF_INET6, "ff02::1" ) ) );
   EXPECT_THAT( found.groups, Contains( address( AF_INET6, "ff35::7" ) ) );
   auto const & other = all.at( near.index( "lo" ) );
   EXPECT_EQ( other.mac, "" );
   EXPECT_THAT( other.groups, Not( Contains( address( AF_INET, "239.1.2.3" ) ) ) );
   EXPECT_THAT( other.groups, Not( Contains( address( AF_INET6, "ff35::7" ) ) ) );
}

TEST_F( MulticastGroupsTest, ADeviceThatIsGoneIsLeftOut ) {
   TestNetNs const near;
   auto const all =
      multicastGroups( NetNsDirectories().open( near.name() ), { 77, near.index( "lo" ) } );
   ASSERT_EQ( all.size(), 1u );
   EXPECT_EQ( all.begin()->first, near.index( "lo" ) );
}

} // namespace
} // namespace Valen::Linux
