#include "settings/Hex.h"
#include "tests/valend/api/ApiFixture.h"

#include <sstream>

namespace Valend {
namespace {

using namespace Test;
using ::testing::HasSubstr;

class ApiTest : public ApiFixture {
 protected:
   ApiTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( ApiTest, ReadingRequiresAGroupAndChangingAnother ) {
   auto const error = [ & ]( std::vector< U32 > groups, char const * method ) {
      auto const answers =
         callAs( { 4'000'000, 1, std::move( groups ) }, method, { { "interface", "Ethernet1" } } );
      return answers->messages.at( 0 ).contains( "error" ) ? answers->error() : "none";
   };
   std::string const user = "uid 4000000";
   auto const * const read = "org.valen.daemon.Status";
   auto const * const change = "org.valen.daemon.Enable";
   EXPECT_EQ( error( { 1000, 4001 }, read ), "none" );
   EXPECT_EQ( error( { 4001 }, read ), "none" ) << "the first group counts like any other";
   EXPECT_EQ( error( { 1000, 4002 }, read ), "none" );
   EXPECT_EQ( error( { 1000, 4002 }, change ), "none" );
   EXPECT_EQ( error( { 1000, 4001 }, change ),
              "org.varlink.service.PermissionDenied: permission denied: Enable "
              "requires root or group 4002 (you are " +
                 user + ")" );
   EXPECT_EQ( error( { 1000 }, read ),
              "org.varlink.service.PermissionDenied: permission denied: Status "
              "requires root or group 4001 or 4002 (you are " +
                 user + ")" );
   EXPECT_FALSE( callAs( {}, "org.varlink.service.GetInfo", Json::object() )
                    ->messages.at( 0 )
                    .contains( "error" ) );
}

TEST_F( ApiTest, WhatDoesNotExistIsRejectedByName ) {
   Json const nine{ { "interface", "Ethernet9" } };
   for ( auto const * method : { "Status", "Explain", "Shutdown", "Enable", "ListMessages" } ) {
      EXPECT_EQ( call( method, nine )->error(),
                 "org.valen.daemon.NoSuchInterface: interface \"Ethernet9\" is not configured" )
         << method;
   }
   EXPECT_EQ( call( "ShutdownMany", { { "interfaces", { "Ethernet1", "Ethernet9" } } } )->error(),
              "org.valen.daemon.NoSuchInterface: interface \"Ethernet9\" is not configured" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) ) << "nothing is done when one name is wrong";
   EXPECT_EQ( call( "List", { { "vrf", "blue" } } )->error(),
              "org.valen.daemon.NoSuchVrf: VRF \"blue\" is not configured" );
   EXPECT_EQ( call( "Show", { { "path", "x" } } )->error(),
              "org.valen.daemon.NoSuchPath: no such path: \"x\"" );
   EXPECT_EQ( call( "Watch", { { "path", "x" } }, true )->error(),
              "org.valen.daemon.NoSuchPath: no such path: \"x\"" );
   EXPECT_EQ( call( "Juggle", nine )->error(),
              "org.varlink.service.MethodNotFound: {\"method\":\"org.valen.daemon.Juggle\"}" );
   EXPECT_EQ( callAs( {}, "a.b.C", nine )->error(),
              "org.varlink.service.InterfaceNotFound: {\"interface\":\"a.b\"}" );
}

TEST_F( ApiTest, ParametersThatAreNotAsDescribedAreRejectedByName ) {
   auto const error = [ & ]( char const * method, Json const & parameters ) {
      return call( method, parameters )->error();
   };
   auto const bad = []( std::string const & name ) {
      return "org.varlink.service.InvalidParameter: {\"parameter\":\"" + name + "\"}";
   };
   EXPECT_EQ( error( "Shutdown", Json::object() ), bad( "interface" ) );
   EXPECT_EQ( error( "Shutdown", { { "interface", 7 } } ), bad( "interface" ) );
   EXPECT_EQ( error( "Status", { { "interface", { 1 } } } ), bad( "interface" ) );
   EXPECT_EQ( error( "Status", { { "interfaces", "Ethernet1" } } ), bad( "interfaces" ) );
   EXPECT_EQ( error( "ShutdownMany", { { "interfaces", "Ethernet1" } } ), bad( "interfaces" ) );
   EXPECT_EQ( error( "ShutdownMany", { { "interfaces", { 1 } } } ), bad( "interfaces" ) );
   EXPECT_EQ( error( "Trace", { { "lines", -1 } } ), bad( "lines" ) );
   EXPECT_EQ( error( "Trace", { { "lines", "1" } } ), bad( "lines" ) );
   EXPECT_EQ( error( "Wait", { { "interface", "Ethernet1" }, { "until", "noon" } } ),
              bad( "until" ) );
   EXPECT_EQ( error( "Publish", { { "agent", "a" },
                                  { "interface", "Ethernet1" },
                                  { "frames", { Settings::toHex( frame( 'x' ) ) } },
                                  { "lifetime", "long" } } ),
              bad( "lifetime" ) );
   EXPECT_EQ( error( "Watch", { { "path", "status" } } ),
              "org.varlink.service.ExpectedMore: Watch streams replies; set \"more\"" );
}

TEST_F( ApiTest, EveryDescribedMethodHasARowAndEveryRowIsDescribed ) {
   std::vector< std::string > names;
   for ( auto const * const text : { daemonDescription, serviceDescription } ) {
      Varlink::Description const description( text );
      for ( auto const & [ name, method ] : description.methods() ) {
         names.push_back( description.name() + "." + name );
      }
   }
   EXPECT_THAT( api.methods(), ::testing::UnorderedElementsAreArray( names ) );
}

// The comment lines directly above the method in the description.
std::string commentOf( std::string const & method ) {
   std::istringstream lines( daemonDescription );
   std::string comment;
   for ( std::string line; std::getline( lines, line ); ) {
      if ( line.starts_with( "method " + method + "(" ) ) {
         return comment;
      }
      comment = line.starts_with( "#" ) ? comment + line + "\n" : "";
   }
   return "no such method";
}

TEST_F( ApiTest, TheDescriptionSaysWhichMethodsRequireTheAdminGroup ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   Varlink::Description const description( daemonDescription );
   int denied = 0;
   for ( auto const & [ name, method ] : description.methods() ) {
      auto const answers = callAs( reader, "org.valen.daemon." + name, { { "unknown", 1 } } );
      bool const isDenied = answers->error().find( "PermissionDenied" ) != std::string::npos;
      bool const says =
         commentOf( name ).find( "Requires the group \"valen-admin\"." ) != std::string::npos;
      EXPECT_EQ( says, isDenied ) << name;
      denied += isDenied;
   }
   EXPECT_GE( denied, 8 );
}

TEST_F( ApiTest, ParametersAreCheckedBeforeTheMethodRuns ) {
   EXPECT_EQ( call( "Shutdown", { { "interface", "Ethernet1" }, { "force", true } } )->error(),
              "org.varlink.service.InvalidParameter: {\"parameter\":\"force\"}" );
   EXPECT_FALSE( controller.running( "Ethernet1" ) );
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   EXPECT_THAT( callAs( reader, "org.valen.daemon.Shutdown", { { "force", true } } )->error(),
                HasSubstr( "PermissionDenied" ) )
      << "a caller without permission learns nothing about the parameters";
}

} // namespace
} // namespace Valend
