#include "valend/kernel/Places.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

Settings::Config config() {
   Settings::Config config;
   config.vrfs[ "red" ] = "ns-red";
   config.interfaces[ "Ethernet2" ] = { "Ethernet2", "et2", "red", true };
   return config;
}

TEST( PlacesTest, ALinkIsADeviceInTheNamespaceOfTheVrf ) {
   EXPECT_EQ( placeOf( config(), config().interfaces.at( "Ethernet2" ) ),
              ( LinkPlace{ "ns-red", "et2" } ) );
}

TEST( PlacesTest, TheConfigurationOfTheMomentCounts ) {
   EXPECT_EQ( placeNow( config(), "Ethernet2", { "default", "eth9" } ),
              ( LinkPlace{ "ns-red", "et2" } ) );
   LinkPlace const before{ "default", "eth9" };
   EXPECT_EQ( placeNow( config(), "Ethernet1", before ), before );
   EXPECT_EQ( placeNow( config(), "Ethernet1", { "ns-red", "et2" } ), std::nullopt );
}

TEST( InterfaceAtTest, ItIsFoundWhateverTheConfigurationSaysSince ) {
   auto changed = config();
   InterfaceAt interfaceAt( changed );
   auto const nameAt = [ & ]( LinkPlace const & place ) {
      auto const * const found = interfaceAt.find( place );
      return found ? found->name : "none";
   };
   EXPECT_EQ( nameAt( { "ns-red", "et2" } ), "Ethernet2" );
   EXPECT_EQ( nameAt( { "default", "et2" } ), "none" );
   changed.interfaces[ "Ethernet3" ] = { "Ethernet3", "et2", "red", true };
   changed.interfaces[ "Ethernet2" ].device = "et9";
   EXPECT_EQ( nameAt( { "ns-red", "et2" } ), "Ethernet3" );
   EXPECT_EQ( nameAt( { "ns-red", "et9" } ), "Ethernet2" );
   interfaceAt.configChanged();
   changed.interfaces.erase( "Ethernet3" );
   EXPECT_EQ( nameAt( { "ns-red", "et2" } ), "none" );
   EXPECT_EQ( nameAt( { "ns-red", "et9" } ), "Ethernet2" );
}

} // namespace
} // namespace Valend
