#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ServiceMethodsTest : public ApiFixture {
 protected:
   // As a caller without any right.
   Json service( char const * method, Json const & parameters ) {
      return callAs( {}, std::string( "org.varlink.service." ) + method, parameters )
         ->messages.at( 0 );
   }
};

TEST_F( ServiceMethodsTest, AnyCallerLearnsWhatTheServiceIs ) {
   auto const info = service( "GetInfo", Json::object() )[ "parameters" ];
   EXPECT_EQ( info[ "product" ], "valend" );
   EXPECT_EQ( info[ "interfaces" ], Json( { "org.varlink.service", "org.valen.daemon" } ) );
   for ( auto const & name : info[ "interfaces" ] ) {
      auto const text =
         service( "GetInterfaceDescription", { { "interface", name } } )[ "parameters" ];
      EXPECT_EQ( Varlink::Description( text[ "description" ].get< std::string >() ).name(), name );
   }
   EXPECT_EQ( service( "GetInterfaceDescription", { { "interface", "a.b" } } )[ "error" ],
              "org.varlink.service.InterfaceNotFound" );
}

} // namespace
} // namespace Valend
