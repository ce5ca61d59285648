#include "valend/api/Access.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

TEST( AccessTest, AGroupThatDoesNotExistHasNoMembers ) {
   Access const access( "valen-no-such-group", "valen-none-either" );
   EXPECT_EQ( access.of( { 1000, 1, { 1000 } } ), Right::none );
   EXPECT_EQ( access.of( { 0, 1, { 0 } } ), Right::change );
   Access const byName( "root", "daemon" );
   EXPECT_EQ( byName.of( { 1000, 1, { 0 } } ), Right::read );
   EXPECT_EQ( byName.of( { 1000, 1, { 1 } } ), Right::change );
   Access const noNumbers( "4001x", "4002-" );
   EXPECT_EQ( noNumbers.of( { 1000, 1, { 4001, 4002 } } ), Right::none );
}

TEST( AccessTest, AGroupThatWasAddedHasItsMembersOnceItIsLookedUp ) {
   Access access( "root", "valen-no-such-group" );
   auto groups = access.lookUp()();
   EXPECT_EQ( groups.readers, 0u );
   EXPECT_EQ( groups.changers, std::nullopt );
   groups.changers = 4002;
   access.groupsAre( groups );
   EXPECT_EQ( access.of( { 1000, 1, { 4002 } } ), Right::change );
   EXPECT_EQ( access.of( { 1000, 1, { 0 } } ), Right::read );
}

TEST( AccessTest, APermissionErrorSaysWhatIsRequiredAndOfWhom ) {
   Access const access( "4001", "4002" );
   auto const error = [ & ]( Right right, U32 uid ) -> std::string {
      try {
         access.require( right, { uid, 1, { uid } }, "Enable" );
      } catch ( Varlink::Error const & e ) {
         return e.name() + ": " + e.parameters()[ "message" ].get< std::string >();
      }
      return "none";
   };
   EXPECT_EQ( error( Right::change, 1 ),
              "org.varlink.service.PermissionDenied: permission denied: Enable requires root or "
              "group 4002 (you are daemon)" );
   EXPECT_EQ( error( Right::read, 4'000'000 ),
              "org.varlink.service.PermissionDenied: permission denied: Enable requires root or "
              "group 4001 or 4002 (you are uid 4000000)" );
   EXPECT_EQ( error( Right::change, 0 ), "none" );
   EXPECT_EQ( error( Right::none, 4'000'000 ), "none" );
}

} // namespace
} // namespace Valend
