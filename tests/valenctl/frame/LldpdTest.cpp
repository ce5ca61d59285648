// Answers that lldpcli gives seldom or never. Those of a running lldpd are for tests/goodbye.
#include "valenctl/frame/Lldpd.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

std::string answer( std::string const & chassis, std::string const & port,
                    std::string const & status = "RX and TX" ) {
   return R"({"lldp": [{"interface": [{"name": "eth1", "status": [{"value": ")" + status +
          R"("}], "chassis": [{"id": [)" + chassis + R"(]}], "port": [{"id": [)" + port +
          "]}]}]}]}";
}
std::string const mac = R"({"type": "mac", "value": "02:00:00:00:00:01"})";

std::string lldpdError( std::string const & answer ) {
   try {
      idsIn( answer, "eth1" );
   } catch ( NoLldpd const & e ) {
      return e.what();
   }
   return "";
}

TEST( LldpdTest, TheIdsHaveTheTypesThatLldpdCanSend ) {
   auto const ids = idsIn( answer( mac, R"({"type": "ifname", "value": "eth1"})" ), "eth1" );
   EXPECT_EQ( ids.chassis.subtype, 4 );
   EXPECT_EQ( ids.chassis.value, std::string( "\x02\0\0\0\0\x01", 6 ) );
   EXPECT_EQ( ids.port.subtype, 5 );
   EXPECT_EQ( ids.port.value, "eth1" );
   auto const local = idsIn( answer( R"({"type": "local", "value": "a b:c"})", mac ), "eth1" );
   EXPECT_EQ( local.chassis.subtype, 7 );
   EXPECT_EQ( local.chassis.value, "a b:c" );
   EXPECT_EQ( local.port.subtype, 3 );
}

TEST( LldpdTest, AnAnswerWithoutTheDeviceIsNotAnId ) {
   for ( auto const * text : { "", "[]", "{}", "lldpd", R"({"lldp": []})", R"({"lldp": [{}]})",
                               R"({"lldp": 1})", R"({"lldp": [{"interface": ["eth1"]}]})" } ) {
      EXPECT_EQ( lldpdError( text ), "lldpd does not know eth1" ) << text;
   }
}

TEST( LldpdTest, AnIdThatIsMissingOrOfAnotherTypeIsNotUsed ) {
   EXPECT_EQ( lldpdError( answer( "{}", mac ) ), "lldpd has no usable chassis ID for eth1" );
   EXPECT_EQ( lldpdError( answer( mac, R"({"type": "ip", "value": "192.0.2.1"})" ) ),
              "lldpd has no usable port ID for eth1 (its type is ip)" );
   EXPECT_EQ( lldpdError( answer( mac, R"({"type": "mac", "value": "02"})" ) ),
              "lldpd has an unusable ID: \"02\" is not a MAC address such as 02:00:00:00:00:01" );
}

TEST( LldpdTest, ADeviceThatLldpdDoesNotSendOnHasNoIds ) {
   EXPECT_EQ( lldpdError( answer( mac, mac, "disabled" ) ),
              "lldpd does not send on eth1 (disabled)" );
   EXPECT_EQ( lldpdError( answer( mac, mac, "TX only" ) ), "" );
}

} // namespace
} // namespace Valenctl
