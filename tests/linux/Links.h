// A fixture for what sets links down and up.
#pragma once

#include "linux/LinkSocket.h"
#include "tests/linux/TestNetwork.h"

#include <optional>

namespace Valen::Test {

// The devices et1, et2 and et3 are in the namespace "blue" and up, with their other ends, far-et1 and so on, in "far".
class LinksTest : public NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      blue_.emplace();
      far_.emplace();
      for ( auto const * const device : { "et1", "et2", "et3" } ) {
         blue_->veth( device, *far_, std::string( "far-" ) + device );
      }
   }
   Linux::LinkId id( std::string const & device ) const {
      return { blue_->text(), device, blue_->index( device ) };
   }

   std::optional< TestNetNs > blue_;
   std::optional< TestNetNs > far_;
};

} // namespace Valen::Test
