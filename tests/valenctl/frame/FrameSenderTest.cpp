#include "valenctl/frame/FrameSender.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( FrameSenderTest, AddressesFromTheCommandLineAreUsed ) {
   SenderOptions options;
   options.given.mac = Goodbye::parseMac( "02:00:00:00:00:01" );
   options.given.ipv4 = Goodbye::parseIpv4Prefix( "192.0.2.1/24" );
   options.given.linkLocal = Goodbye::parseIpv6( "fe80::1" );
   FrameSender const sender( options );
   EXPECT_EQ( sender.mac().to_string(), "02:00:00:00:00:01" );
   EXPECT_EQ( sender.ipv4().address.to_string(), "192.0.2.1" );
   EXPECT_EQ( sender.linkLocal().to_string(), "fe80::1" );
}

TEST( FrameSenderTest, TheyOverrideTheDevices ) {
   SenderOptions options;
   options.device = "lo";
   options.given.ipv4 = Goodbye::parseIpv4Prefix( "192.0.2.1/24" );
   EXPECT_EQ( FrameSender( options ).ipv4().address.to_string(), "192.0.2.1" );
}

TEST( FrameSenderTest, AMissingAddressNamesTheOptionToGive ) {
   SenderOptions const options;
   FrameSender const sender( options );
   auto const error = [ & ]( auto const & use ) -> std::string {
      try {
         use();
      } catch ( UsageError const & e ) {
         return e.what();
      }
      return "";
   };
   EXPECT_EQ( error( [ & ] { sender.mac(); } ),
              "the frame needs the sender's MAC address: give --mac, or --device to take it from" );
   EXPECT_EQ( error( [ & ] { sender.ipv4(); } ),
              "the frame needs the sender's IPv4 address: give --ip, or --device to take it from" );
   EXPECT_EQ( error( [ & ] { sender.linkLocal(); } ),
              "the frame needs the sender's link-local IPv6 address: give --ip, or --device to "
              "take it from" );
}

TEST( FrameSenderTest, ADeviceWithoutTheAddressIsNamed ) {
   SenderOptions options;
   options.device = "lo"; // which has no MAC address
   FrameSender const sender( options );
   try {
      sender.mac();
      FAIL();
   } catch ( std::runtime_error const & e ) {
      EXPECT_STREQ( e.what(), "device lo has no MAC address" );
   }
}

} // namespace
} // namespace Valenctl
