#include "goodbye/Addresses.h"
#include "goodbye/Bytes.h"
#include "goodbye/Lldp.h"
#include "goodbye/Mdns.h"

#include <gtest/gtest.h>

namespace Goodbye {
namespace {

// The error of `parse` for a text; empty if it accepts the text.
template < class Parse > std::string complaint( Parse const & parse, std::string const & text ) {
   try {
      (void)parse( text );
   } catch ( BadText const & e ) {
      return e.what();
   }
   return "";
}

TEST( AddressesTest, AddressesAreParsed ) {
   EXPECT_EQ( parseMac( "02:0a:Ff:00:00:01" ).to_string(), "02:0a:ff:00:00:01" );
   EXPECT_EQ( parseIpv4( "192.0.2.1" ).to_string(), "192.0.2.1" );
   EXPECT_EQ( parseIpv6( "2001:db8::1" ).to_string(), "2001:db8::1" );
   auto const prefix = parseIpv4Prefix( "192.0.2.1/23" );
   EXPECT_EQ( prefix.address.to_string(), "192.0.2.1" );
   EXPECT_EQ( prefix.mask().to_string(), "255.255.254.0" );
   EXPECT_EQ( parseIpv4Prefix( "192.0.2.1" ).mask().to_string(), "255.255.255.255" );
   EXPECT_EQ( parseIpv4Prefix( "0.0.0.0/0" ).mask().to_string(), "0.0.0.0" );
}

TEST( AddressesTest, InvalidAddressesAreRejected ) {
   for ( std::string const text :
         { "", "02", "02:00:00:00:00", "02:00:00:00:00:0g", "02-00-00-00-00-01",
           "02:00:00:00:00:01:02", "2:0:0:0:0:1", "+2:00:00:00:00:01", "02:00:00:00:00:1 " } ) {
      EXPECT_EQ( complaint( parseMac, text ),
                 "\"" + text + "\" is not a MAC address such as 02:00:00:00:00:01" );
   }
   for ( std::string const text : { "", "192.0.2", "192.0.2.256", "eth0", "192.0.2.1 " } ) {
      EXPECT_EQ( complaint( parseIpv4, text ), "\"" + text + "\" is not an IPv4 address" );
   }
   for ( std::string const text : { "", "fe80", "fe80::1::2", "192.0.2.1", "fe80::1%eth0" } ) {
      EXPECT_EQ( complaint( parseIpv6, text ), "\"" + text + "\" is not an IPv6 address" );
   }
   for ( std::string const text :
         { "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x", "10.0.0.0/256" } ) {
      EXPECT_EQ( complaint( parseIpv4Prefix, text ),
                 "\"" + text + "\" is not an IPv4 prefix such as 192.0.2.0/24" );
   }
   EXPECT_EQ( complaint( parseIpv4Group, "192.0.2.1" ),
              "\"192.0.2.1\" is not a multicast address" );
}

TEST( AddressesTest, LinkLocalAddressesAreRecognized ) {
   EXPECT_TRUE( isLinkLocal( Ipv6( "fe80::1" ) ) );
   EXPECT_TRUE( isLinkLocal( Ipv6( "febf::1" ) ) );
   EXPECT_FALSE( isLinkLocal( Ipv6( "fec0::1" ) ) );
   EXPECT_FALSE( isLinkLocal( Ipv6( "2001:db8::1" ) ) );
}

TEST( AddressesTest, LldpIdsHaveATypeAndAValue ) {
   EXPECT_EQ( parseLldpChassis( "mac:02:00:00:00:00:01" ).subtype, 4 );
   EXPECT_EQ( parseLldpChassis( "name:eth0" ).subtype, 6 );
   EXPECT_EQ( parseLldpChassis( "local:a:b" ).subtype, 7 );
   EXPECT_EQ( parseLldpChassis( "local:a:b" ).value, "a:b" );
   EXPECT_EQ( parseLldpPort( "mac:02:00:00:00:00:01" ).subtype, 3 );
   EXPECT_EQ( parseLldpPort( "mac:02:00:00:00:00:01" ).value.size(), 6u );
   EXPECT_EQ( parseLldpPort( "name:eth0" ).subtype, 5 );
   EXPECT_EQ( parseLldpPort( "local:x" ).subtype, 7 );
   EXPECT_EQ( complaint( parseLldpPort, "eth0" ),
              "\"eth0\" is not mac:ADDRESS, name:TEXT or local:TEXT" );
   EXPECT_EQ( complaint( parseLldpPort, "name:" ),
              "\"name:\" is not mac:ADDRESS, name:TEXT or local:TEXT" );
   EXPECT_EQ( complaint( parseLldpPort, "local:" + std::string( 255, 'x' ) ), "" );
   EXPECT_EQ( complaint( parseLldpPort, "local:" + std::string( 256, 'x' ) ),
              "an id of 256 bytes; at most 255 fit" );
}

TEST( AddressesTest, MdnsNamesHaveLabelsOfLimitedLength ) {
   EXPECT_EQ( parseMdnsName( "router.local." ), "router.local" );
   EXPECT_EQ( parseMdnsPointer( "a.local=b.local" ).target, "b.local" );
   std::string const longest( 63, 'x' );
   EXPECT_EQ( complaint( parseMdnsName, longest + ".local" ), "" );
   auto const tooLong = longest + "." + longest + "." + longest + "." + longest;
   for ( auto const & text : { std::string(), std::string( "." ), std::string( "a..local" ),
                               std::string( ".local" ), longest + "x.local", tooLong } ) {
      EXPECT_EQ( complaint( parseMdnsName, text ),
                 "\"" + text + "\" is not a name such as router.local" );
   }
   EXPECT_EQ( complaint( parseMdnsPointer, "a.local" ), "\"a.local\" is not NAME=TARGET" );
}

// The example of RFC 1071, 3.
TEST( BytesTest, TheChecksumIsTheInternetChecksum ) {
   EXPECT_EQ( internetChecksum( Bytes().u32( 0x0001f203 ).u32( 0xf4f5f6f7 ).view() ), 0x220d );
   EXPECT_EQ( internetChecksum( Bytes().u8( 0x12 ).view() ), 0xedff );
   EXPECT_EQ( internetChecksum( "" ), 0xffff );
}

} // namespace
} // namespace Goodbye
