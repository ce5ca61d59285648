#include "valend/shutdown/Places.h"

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

} // namespace
} // namespace Valend
