#include "valend/base/Errors.h"

#include <gmock/gmock.h>

using namespace Valend;

TEST( ErrorsTest, AnErrorIsANameForProgramsAndALineForPeople ) {
   auto const error = Errors::noSuchMessages( "bgp", "Ethernet1" );
   EXPECT_EQ( error.name(), "NoSuchMessages" );
   EXPECT_STREQ( error.what(),
                 "agent \"bgp\" has not published frames for interface \"Ethernet1\"" );
   EXPECT_EQ( error.parameters(), nlohmann::json( { { "message", error.what() } } ) );
}

TEST( ErrorsTest, ARejectedConfigurationListsAllThatIsWrong ) {
   auto const error = Errors::configRejected( { "a.yaml:1:1: x", "a.yaml:2:1: y" } );
   EXPECT_STREQ( error.what(), "configuration rejected; keeping the previous one" );
   EXPECT_EQ( error.parameters()[ "errors" ],
              nlohmann::json( { "a.yaml:1:1: x", "a.yaml:2:1: y" } ) );
}
