#include "tests/derivation/Frames.h"

namespace Derivation::Test::LldpCases {
namespace {

std::string const chassis = hex( "0207 04 02....01" );
std::string const port = hex( "0405 05" ) + "eth0";
std::string const ttl120 = hex( "0602 0078" );
std::string const ttl0 = hex( "0602 .." );
std::string const others = hex( "0a02" ) + "sw" + hex( "fe06 00120f 04 05ee" );
std::string const end = hex( ".." );

std::string lldp( std::string const & unit ) {
   return ethernet( "0180c2..0e", 0x88cc, unit );
}

std::string const hello = lldp( chassis + port + ttl120 + others + end );
Sample const plain( "lldp", hello );
Sample const padded( "lldp padded", lldp( chassis + port + ttl120 + end ) + std::string( 20, 0 ) );

TEST( LldpTest, TheTimeToLiveBecomes0 ) {
   auto const heard = heardOf( hello );
   EXPECT_EQ( heard.protocol, "lldp" );
   EXPECT_EQ( heard.speaker, "chassis 02:00:00:00:00:01, port eth0" );
   EXPECT_EQ( heard.says, "ttl 120" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 120 ) );
   EXPECT_EQ( heard.greeting, hello );
   EXPECT_EQ( heard.goodbye, lldp( chassis + port + ttl0 + others + end ) );
   EXPECT_EQ( heard.change, "ttl 120 -> 0" );
   EXPECT_EQ( heard.replaced, ( std::vector< Replaced >{ { 32, 2, 2 } } ) );
   EXPECT_EQ( heard.whyNot, "" );
   EXPECT_EQ( heard.part, "" );
}

TEST( LldpTest, AGoodbyeLeaves ) {
   auto const heard = heardOf( lldp( chassis + port + ttl0 + end ) );
   EXPECT_TRUE( heard.leaves );
   EXPECT_EQ( heard.says, "ttl 0" );
   EXPECT_EQ( heard.goodbye, "" );
   EXPECT_EQ( heard.holdTime, std::chrono::seconds( 0 ) );
}

TEST( LldpTest, EachScopeGetsAPart ) {
   auto const other = patched( hello, 0, hex( "0180c2..." ) );
   EXPECT_EQ( heardOf( other ).part, "for 01:80:c2:00:00:00" );
   EXPECT_EQ( heardOf( other ).goodbye.substr( 0, 6 ), other.substr( 0, 6 ) );
}

TEST( LldpTest, IdsAreInWords ) {
   auto const speaker = []( std::string const & id, std::string const & portId ) {
      return heardOf( lldp( hex( id ) + hex( portId ) + ttl120 + end ) ).speaker;
   };
   EXPECT_EQ( speaker( "0206 05 01 c0000201", "0407 03 02....02" ),
              "chassis 192.0.2.1, port 02:00:00:00:00:02" );
   EXPECT_EQ( speaker( "0212 05 02 20010db8 .... .... ...01", "0406 04 01 c0000202" ),
              "chassis 2001:db8::1, port 192.0.2.2" );
   EXPECT_EQ( speaker( "0204 07 610a62", "0403 07 6162" ), "chassis 610a62, port ab" );
   // An address of another family.
   EXPECT_EQ( speaker( "0204 07 610a62", "0406 04 06 c0000202" ),
              "chassis 610a62, port 06c0000202" );
}

TEST( LldpTest, AnIdOrAnOptionalTlvOfAWrongLengthIsRefused ) {
   std::string const length = "lldp: a length is wrong", cutOff = "lldp: it ends too early",
                     value = "lldp: a field has a value that is not allowed";
   auto const with = []( std::string const & tlv ) {
      return refusalOf( lldp( chassis + port + ttl120 + hex( tlv ) + end ) );
   };
   auto const id = []( std::string const & tlv ) {
      return refusalOf( lldp( hex( tlv ) + port + ttl120 + end ) );
   };
   EXPECT_EQ( id( "0205 04 02..." ), length );       // a MAC address
   EXPECT_EQ( id( "0205 05 01 c00002" ), length );   // an IPv4 address
   EXPECT_EQ( id( "0206 05 02 20010db8" ), length ); // an IPv6 address
   EXPECT_EQ( id( "0202 05 c7" ), length );          // no address of another family
   EXPECT_EQ( id( "0203 05 c7 01" ), "heard" );
   EXPECT_EQ( id( "0202 00 61" ), value );
   EXPECT_EQ( id( "0202 08 61" ), value );
   EXPECT_EQ( with( "0e03 00140014" ), length );             // capabilities
   EXPECT_EQ( with( "1008 05 01 c0000201 02 00" ), cutOff ); // a management address
   EXPECT_EQ( with( "fe03 00120f" ), length );               // an organization's
   EXPECT_EQ( with( "100c 05 01 c0000201 02 ...01 00" ), "heard" );
   EXPECT_EQ( with( "100c 04 01 c0000201 02 ...01 00" ), length );
}

TEST( LldpTest, WhatBreaksTheOrderOfTlvsIsRefused ) {
   std::string const missing = "lldp: a TLV is missing, or in the wrong place";
   std::string const length = "lldp: a length is wrong";
   std::string const beyond = "lldp: a TLV goes beyond the end";
   std::string const cutOff = "lldp: it ends too early";
   struct Case {
      std::string unit;
      std::string refusal;
   };
   for ( auto const & [ unit, refusal ] : {
            Case{ port + chassis + ttl120 + end, missing },
            Case{ chassis + ttl120 + port + end, missing },
            Case{ chassis + port + others + ttl120 + end, missing },
            Case{ chassis + port + end, missing },
            Case{ chassis + port + ttl120 + ttl120 + end, missing },
            Case{ chassis + port + ttl120 + chassis + end, missing },
            Case{ chassis + port + ttl120, cutOff },
            Case{ chassis + port + ttl120 + others, cutOff },
            Case{ chassis + port + ttl120 + hex( "0a09" ) + "sw" + end, beyond },
            Case{ chassis + port + ttl120 + hex( "0001 ." ), length },
            Case{ chassis + port + hex( "0603 0078 ." ) + end, length },
            Case{ chassis + port + hex( "0601 78" ) + end, length },
            Case{ hex( "0201 04" ) + port + ttl120 + end, length },
            Case{ chassis + hex( "0500 05" ) + std::string( 255, 'p' ) + ttl120 + end, "heard" },
            Case{ chassis + hex( "0501 05" ) + std::string( 256, 'p' ) + ttl120 + end, length },
         } ) {
      EXPECT_EQ( refusalOf( lldp( unit ) ), refusal );
   }
}

} // namespace
} // namespace Derivation::Test::LldpCases
