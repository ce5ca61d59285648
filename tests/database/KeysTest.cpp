#include "database/Keys.h"

#include <gtest/gtest.h>

namespace Database {
namespace {

TEST( KeysTest, ANameIsParsedAsItWasMade ) {
   for ( auto const & [ key, name ] :
         { std::pair( Key{ Kind::configDelay }, "config:delay" ),
           std::pair( Key{ Kind::configVrf, "red" }, "config:vrf:red" ),
           std::pair( Key{ Kind::configInterface, "Ethernet1" }, "config:interface:Ethernet1" ),
           std::pair( Key{ Kind::frames, "Ethernet1:2", "lldp" }, "frames:lldp:Ethernet1:2" ),
           std::pair( Key{ Kind::want, "a:b" }, "want:a:b" ),
           std::pair( Key{ Kind::status, "Ethernet1" }, "status:Ethernet1" ),
           std::pair( Key{ Kind::rejected, "config:delay" }, "rejected:config:delay" ),
           std::pair( Key{ Kind::history }, "history" ),
           std::pair( Key{ Kind::alive }, "alive" ) } ) {
      EXPECT_EQ( nameOf( key ), name );
      EXPECT_EQ( parseName( name ), key ) << name;
   }
}

TEST( KeysTest, ANameWithoutAPartIsNone ) {
   for ( auto const * name : { "", "config", "config:", "config:delays",
                               "config:vrf:", "config:interface:", "frames:", "frames:lldp",
                               "frames:lldp:", "frames::Ethernet1", "want:", "historyx", "x:y" } ) {
      EXPECT_EQ( parseName( name ), std::nullopt ) << name;
   }
}

TEST( KeysTest, APrefixIsTakenOffKeysBelowItOnly ) {
   auto const prefix = defaultPrefix( "rtr1" );
   EXPECT_EQ( withPrefix( prefix, "alive" ), "valen:rtr1:alive" );
   EXPECT_EQ( withoutPrefix( prefix, "valen:rtr1:want:a" ), "want:a" );
   EXPECT_EQ( withoutPrefix( prefix, "valen:rtr10:want:a" ), std::nullopt );
   EXPECT_EQ( withoutPrefix( prefix, "valen:rtr1" ), std::nullopt );
   EXPECT_EQ( withoutPrefix( prefix, "valen:rtr1:" ), "" );
}

} // namespace
} // namespace Database
