#include "linux/Capabilities.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/wait.h>

namespace Valen::Linux {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

NetNs own() {
   return NetNsDirectories().open( Corvid::NamespaceName::defaultNamespace() );
}

class CapabilitiesTest : public Valen::Test::NetworkTest {
 protected:
   // Runs `work` in a forked child, whose privileges it may drop. Returns whether its expectations were met.
   template < class Work > static bool inChild( Work work ) {
      auto const child = ::fork();
      if ( child == 0 ) {
         work();
         ::_exit( ::testing::Test::HasFailure() );
      }
      int status = 0;
      ::waitpid( child, &status, 0 );
      return status == 0;
   }
};

TEST_F( CapabilitiesTest, NothingIsMissingWithAllPrivileges ) {
   EXPECT_THAT( missingCapabilities( NetNsUse::named ), IsEmpty() );
   EXPECT_TRUE( mayChangeLinks( own() ) );
   Valen::Test::TestNetNs const red;
   EXPECT_TRUE( mayChangeLinks( NetNsDirectories().open( red.name() ) ) );
}

TEST_F( CapabilitiesTest, WhatIsMissingIsNamed ) {
   EXPECT_TRUE( inChild( [] {
      Valen::Test::dropCapability( CAP_NET_ADMIN );
      EXPECT_THAT( missingCapabilities( NetNsUse::own ), ElementsAre( "CAP_NET_ADMIN" ) );
      EXPECT_FALSE( mayChangeLinks( own() ) );
      Valen::Test::dropCapability( CAP_NET_RAW );
      Valen::Test::dropCapability( CAP_SYS_ADMIN );
      EXPECT_THAT( missingCapabilities( NetNsUse::own ),
                   ElementsAre( "CAP_NET_ADMIN", "CAP_NET_RAW" ) );
      EXPECT_THAT( missingCapabilities( NetNsUse::named ),
                   ElementsAre( "CAP_NET_ADMIN", "CAP_NET_RAW", "CAP_SYS_ADMIN" ) );
   } ) );
}

TEST_F( CapabilitiesTest, OneThatIsNotInUseIsMissing ) {
   EXPECT_TRUE( inChild( [] {
      Valen::Test::suspendCapability( CAP_NET_RAW );
      EXPECT_THAT( missingCapabilities( NetNsUse::own ), ElementsAre( "CAP_NET_RAW" ) );
   } ) );
}

// The process has all capabilities then, but they do not count for a namespace made before.
TEST_F( CapabilitiesTest, ANamespaceOfAnotherUserNamespaceIsNotOurs ) {
   EXPECT_TRUE( inChild( [] {
      if ( ::unshare( CLONE_NEWUSER ) < 0 ) {
         std::cerr << "no user namespaces here: " << errorText( errno ) << '\n';
         return;
      }
      EXPECT_THAT( missingCapabilities( NetNsUse::own ), IsEmpty() );
      EXPECT_FALSE( mayChangeLinks( own() ) );
      EXPECT_EQ( ::unshare( CLONE_NEWNET ), 0 );
      EXPECT_TRUE( mayChangeLinks( own() ) );
   } ) );
}

} // namespace
} // namespace Valen::Linux
