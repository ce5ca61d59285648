#include "valenctl/frame/DeviceAddresses.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace Valenctl {
namespace {

std::string errorOf( std::string const & device, std::string const & netNs ) {
   try {
      deviceAddresses( device, netNs );
   } catch ( std::runtime_error const & e ) {
      return e.what();
   }
   return "";
}

TEST( DeviceAddressesTest, TheLoopbackDeviceHasNoMacAddressAndNoLinkLocalOne ) {
   auto const addresses = deviceAddresses( "lo", "" );
   EXPECT_FALSE( addresses.mac );
   EXPECT_FALSE( addresses.linkLocal );
}

TEST( DeviceAddressesTest, ErrorsSayWhatDoesNotExist ) {
   EXPECT_EQ( errorOf( "vt-none", "" ), "there is no device vt-none" );
   EXPECT_EQ( errorOf( "lo", "vt-none" ),
              "cannot open network namespace vt-none: No such file or directory" );
}

} // namespace
} // namespace Valenctl
