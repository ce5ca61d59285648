// Frames of real daemons, captured at the egress of a device: lldpd (LLDP, CDP), radvd, keepalived, BIRD (OSPF, BFD,
// RIP) and FRR (IS-IS, RIPng, EIGRP, PIM).
#include "tests/derivation/Frames.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace Derivation::Test {
namespace {

std::vector< std::string > captured() {
   constexpr std::size_t fileHeader = 24, frameHeader = 16, lengthAt = 8;
   std::stringstream content;
   content << std::ifstream( CAPTURED, std::ios::binary ).rdbuf();
   auto const all = content.str();
   std::vector< std::string > frames;
   for ( auto at = fileHeader; at + frameHeader <= all.size(); ) {
      auto const byte = [ & ]( std::size_t i ) { return static_cast< U8 >( all[ at + i ] ); };
      std::size_t const length = byte( lengthAt ) + 256U * byte( lengthAt + 1 );
      frames.push_back( all.substr( at + frameHeader, length ) );
      at += frameHeader + length;
   }
   return frames;
}

// As samples, what must hold for all frames is tested with them.
[[maybe_unused]] bool const added = [] {
   std::size_t number_ = 0;
   for ( auto const & frame : captured() ) {
      Sample( "captured " + std::to_string( ++number_ ), frame );
   }
   return true;
}();

TEST( CapturedTest, EachFrameHasAGoodbye ) {
   std::vector< std::string > seen;
   for ( auto const & frame : captured() ) {
      auto const heard = heardOf( frame );
      seen.push_back( heard.protocol + ": " + heard.speaker + ": " + heard.change );
   }
   EXPECT_THAT(
      seen, ::testing::ElementsAre(
               "lldp: chassis 02:00:00:00:00:0a, port 02:00:00:00:00:0a: ttl 120 -> 0",
               "cdp: device vm, port va: ttl 120 -> 0",
               "ra: router fe80::ff:fe00:a: router lifetime 12 -> 0",
               "vrrp: virtual router 9 (IPv4): priority 200 -> 0",
               "vrrp: virtual router 9 (IPv6): priority 200 -> 0",
               "vrrp: virtual router 11 (IPv4): priority 200 -> 0",
               "vrrp: virtual router 7 (IPv4): priority 200 -> 0",
               "vrrp: virtual router 8 (IPv4): priority 200 -> 0",
               "ra: router fe80::9: router lifetime 12 -> 0",
               "isis: system 0000.0000.0001, level 2: 1 neighbor -> 0 neighbors",
               "isis: system 0000.0000.0001, level 1: 1 neighbor -> 0 neighbors",
               "isis: system 0000.0000.0001, point-to-point: three-way state initializing -> down",
               "isis: system 0000.0000.0001, point-to-point: three-way state up -> down",
               "ospf: router 10.0.0.1: 1 neighbor -> 0 neighbors",
               "ospfv3: router 10.0.0.1: 1 neighbor -> 0 neighbors",
               "bfd: session with my discriminator 0xa991622a: state Up -> AdminDown",
               "bfd: session with my discriminator 0x636593b5: state Up -> AdminDown",
               "rip: router 192.0.2.1: 1 route -> metric 16",
               "ripng: router fe80::e458:b5ff:fe1f:dce2: 1 route -> metric 16",
               "eigrp: router 192.0.2.1: K values 1,0,1,0,0 -> 255",
               "pim: router 192.0.2.1: hold time 105 -> 0" ) );
}

} // namespace
} // namespace Derivation::Test
