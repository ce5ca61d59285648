#include "valenctl/command/InterfaceSelection.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

namespace Valenctl {
namespace {

using Json = nlohmann::json;

// The parameters that a command line with these words selects.
Json parameters( std::vector< std::string > words ) {
   CLI::App app;
   InterfaceSelection selection;
   selection.addTo( app );
   std::reverse( words.begin(), words.end() ); // as the parser wants them
   app.parse( words );
   return selection.parameters();
}

TEST( InterfaceSelectionTest, InterfacesAreSelectedInOneOfFiveWays ) {
   EXPECT_EQ( parameters( { "a", "b" } ), ( Json{ { "interfaces", { "a", "b" } } } ) );
   EXPECT_EQ( parameters( { "--vrf", "red" } ), ( Json{ { "vrf", "red" } } ) );
   EXPECT_EQ( parameters( { "--device", "eth1" } ), ( Json{ { "device", "eth1" } } ) );
   EXPECT_EQ( parameters( { "--ready" } ), ( Json{ { "ready", true } } ) );
   EXPECT_EQ( parameters( { "--all" } ), ( Json{ { "all", true } } ) );
}

TEST( InterfaceSelectionTest, ExactlyOneWayMustBeGiven ) {
   for ( auto const & words :
         std::vector< std::vector< std::string > >{ {},
                                                    { "--all", "a" },
                                                    { "--all", "--vrf", "red" },
                                                    { "--ready", "--device", "eth1" } } ) {
      EXPECT_THROW( parameters( words ), CLI::ParseError );
   }
}

} // namespace
} // namespace Valenctl
