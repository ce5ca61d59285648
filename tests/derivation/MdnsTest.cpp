#include "tests/derivation/Packets.h"

namespace Derivation::Test {
namespace {

using std::chrono::seconds;

Way const mdnsWay{ "01005e0000fb", "c0000201", "e00000fb", 255 };
Way const mdnsWay6{ "3333000000fb", "fe800000000000000000000000000001",
                    "ff0200000000000000000000000000fb", 255 };

std::string label( std::string const & text ) {
   return number( text.size(), 1 ) + text;
}

// The flags, and how many questions, answers, and additional records.
std::string dnsHeader( std::size_t answers, std::size_t additional = 0, std::size_t questions = 0,
                       std::string const & flags = "8400" ) {
   return hex( ".." + flags ) + u16( questions ) + u16( answers ) + hex( ".." ) + u16( additional );
}

std::string record( std::string const & name, std::string const & typeAndClass, std::size_t ttl,
                    std::string const & data ) {
   return name + hex( typeAndClass ) + number( ttl, 4 ) + u16( data.size() ) + data;
}

std::string const httpName = label( "_http" ) + label( "_tcp" ) + label( "local" ) + hex( "." );
std::string const hostName = label( "router" ) + label( "local" ) + hex( "." );
std::string const dnsOptions = record( hex( "." ), "0029 05a0", 0x1194, hex( "0004 0001 0a" ) );

// A service with its host, with compressed names, and what the host has besides.
std::string serviceResponse( std::size_t shared, std::size_t unique ) {
   auto const web = hex( "c028" ), host = hex( "c040" );
   return dnsHeader( 3, 2 ) +
          record( httpName, "000c 0001", shared, label( "Web" ) + hex( "c00c" ) ) +
          record( web, "0021 8001", unique,
                  hex( ".... 0050" ) + label( "router" ) + hex( "c017" ) ) +
          record( host, "0001 8001", unique, hex( "c0000201" ) ) +
          record( host, "002f 8001", unique, host + hex( "0001 40" ) ) + dnsOptions;
}

std::string hostResponse( std::size_t ttl, std::string const & name = hostName ) {
   return dnsHeader( 1 ) + record( name, "0001 8001", ttl, hex( "c0000201" ) );
}

std::string mdnsFrame( std::string const & message ) {
   return udp4( mdnsWay, "14e9 14e9", message );
}

Cases mdnsCases() {
   auto const question = label( "a" ) + hex( ". 00ff 0001" );
   auto asked = []( std::size_t ttl, std::string const & asking ) {
      return dnsHeader( 1, 0, 1 ) + asking +
             record( hostName, "001c 8001", ttl, hex( "fe80" ) + std::string( 14, 1 ) );
   };
   return {
      { "a service", mdnsFrame( serviceResponse( 4500, 120 ) ),
        mdnsFrame( serviceResponse( 0, 0 ) ), "mdns", "host 192.0.2.1", "ttl 4500", "ttl 4500 -> 0",
        seconds( 4500 ), "_http._tcp.local PTR web._http._tcp.local and 2 more, 457b010c719a3df9" },
      { "a host", udp6( mdnsWay6, "14e9 14e9", hostResponse( 120 ) ),
        udp6( mdnsWay6, "14e9 14e9", hostResponse( 0 ) ), "mdns", "host fe80::1", "ttl 120",
        "ttl 120 -> 0", seconds( 120 ), "router.local A" },
      { "a question in a response", mdnsFrame( asked( 120, question ) ),
        mdnsFrame( asked( 0, question ) ), "mdns", "host 192.0.2.1", "ttl 120", "ttl 120 -> 0",
        seconds( 120 ), "router.local AAAA" },
   };
}

Cases const mdnsAll = registered( mdnsCases() );

TEST( MdnsTest, TheGoodbyeIsDerivedFromEachFrame ) {
   expectCases( mdnsAll );
}

TEST( MdnsTest, APartialUdpChecksumIsCompleted ) {
   auto const heard =
      heardOf( udp4( mdnsWay, "14e9 14e9", hostResponse( 120 ), UdpChecksum::partial ) );
   EXPECT_EQ( heard.greeting, mdnsFrame( hostResponse( 120 ) ) );
   EXPECT_EQ( heard.goodbye, mdnsFrame( hostResponse( 0 ) ) );
}

// Other data of the same name and type replace it; other pointers of a name are further records.
TEST( MdnsTest, ThePartIsTheSetOfRecords ) {
   auto part = []( std::string const & records, std::size_t count = 1 ) {
      return heardOf( mdnsFrame( dnsHeader( count ) + records ) ).part;
   };
   auto pointer = []( char const * to ) {
      return record( httpName, "000c 0001", 10, label( to ) + hex( "." ) );
   };
   auto const address = record( hostName, "0001 8001", 10, hex( "c0000202" ) );
   EXPECT_EQ( part( pointer( "a" ) ), "_http._tcp.local PTR a" );
   EXPECT_EQ( part( address ), heardOf( mdnsFrame( hostResponse( 120 ) ) ).part );
   EXPECT_EQ( part( pointer( "a" ) + address, 2 ), part( address + pointer( "a" ), 2 ) );
   EXPECT_NE( part( pointer( "a" ) + address, 2 ), part( pointer( "b" ) + address, 2 ) );
   EXPECT_EQ( part( record( hostName, "0010 8001", 10, hex( "." ) ) ), "router.local TXT" );
   EXPECT_EQ( part( record( hex( "." ), "0041 8001", 10, hex( "." ) ) ), ". TYPE65" );
   EXPECT_EQ( part( record( label( "ROUTER" ) + label( "\xc3\xa4" ) + hex( "." ), "0021 8001", 1,
                            hex( "...... ." ) ) ),
              "router.c3a4 SRV" );
}

TEST( MdnsTest, QueriesAndErrorsAreNothing ) {
   auto const data = record( hostName, "0001 8001", 120, hex( "c0000201" ) );
   for ( auto const * const flags : { "0000", "8c00", "8403" } ) {
      EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 1, 0, 0, flags ) + data ) ), "nothing" );
   }
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 0, 1 ) + data ) ), "nothing" );
}

TEST( MdnsTest, InvalidNamesAreRefused ) {
   auto refused = []( std::string const & name ) {
      return refusalOf( mdnsFrame( hostResponse( 120, name ) ) );
   };
   auto const badValue = "mdns: a field has a value that is not allowed";
   EXPECT_EQ( refused( hex( "c00c" ) ), badValue );                // to itself
   EXPECT_EQ( refused( label( "a" ) + hex( "c00c" ) ), badValue ); // to its beginning
   EXPECT_EQ( refused( hex( "c0ff" ) ), badValue );                // ahead
   EXPECT_EQ( refused( hex( "ffff" ) ), badValue );                // beyond the end
   EXPECT_EQ( refused( hex( "40" ) + std::string( 64, 'a' ) + hex( "." ) ), badValue );
   EXPECT_EQ( refused( hex( "80." ) ), badValue );
   auto const longest = label( std::string( 63, 'a' ) );
   auto const rest = label( std::string( 60, 'a' ) );
   EXPECT_EQ( refused( longest + longest + longest + rest + hex( "." ) ), "heard" );
   EXPECT_EQ( refused( longest + longest + longest + label( std::string( 61, 'a' ) ) + hex( "." ) ),
              "heard" );
   EXPECT_EQ( refused( longest + longest + longest + label( std::string( 62, 'a' ) ) + hex( "." ) ),
              badValue );
   EXPECT_EQ( refused( hex( "3f" ) ), "mdns: it ends too early" );
}

// A name may go on from pointer to pointer, but not without end.
TEST( MdnsTest, ChainsOfPointersAreBounded ) {
   auto chain = []( std::size_t pointers ) {
      std::string data = hex( "." );
      auto const first = 12 + 1 + 10; // the position of the data
      for ( std::size_t i = 0; i < pointers - 1; ++i ) {
         data += u16( 0xc000 + first + ( i == 0 ? 0 : 1 + 2 * ( i - 1 ) ) );
      }
      auto const last = u16( 0xc000 + first + 1 + 2 * ( pointers - 2 ) );
      return mdnsFrame( dnsHeader( 2 ) + record( hex( "." ), "0041 8001", 1, data ) +
                        record( last, "0001 8001", 1, hex( "c0000201" ) ) );
   };
   EXPECT_EQ( refusalOf( chain( 127 ) ), "heard" );
   EXPECT_EQ( refusalOf( chain( 128 ) ), "mdns: a field has a value that is not allowed" );
}

TEST( MdnsTest, InvalidResponsesAreRefused ) {
   auto const badValue = "mdns: a field has a value that is not allowed";
   auto const badLength = "mdns: a length is wrong";
   auto const cutOff = "mdns: it ends too early";
   auto const address = record( hostName, "0001 8001", 120, hex( "c0000201" ) );
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 2 ) + address ) ), cutOff );
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 1, 0, 1 ) + address ) ), cutOff );
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 1 ) + address + hex( "." ) ) ), badLength );
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 1 ) + dnsOptions ) ), badValue );
   EXPECT_EQ( refusalOf( mdnsFrame( dnsHeader( 1 ) + record( httpName, "000c 0001", 1,
                                                             label( "a" ) + hex( ".." ) ) ) ),
              badLength );
   EXPECT_EQ(
      refusalOf( mdnsFrame( dnsHeader( 1 ) + record( httpName, "000c 0001", 1, label( "a" ) ) ) ),
      cutOff );
   auto const with = []( std::string const & typeAndClass, std::string const & data ) {
      return refusalOf( mdnsFrame( dnsHeader( 1 ) + record( hostName, typeAndClass, 1, data ) ) );
   };
   EXPECT_EQ( with( "0001 8001", hex( "c00002" ) ), cutOff );
   EXPECT_EQ( with( "0001 8001", hex( "c000020101" ) ), badLength );
   EXPECT_EQ( with( "001c 8001", hex( "c0000201" ) ), cutOff );
   EXPECT_EQ( with( "0021 8001", hex( "......" ) ), cutOff );
   EXPECT_EQ( with( "0021 8001", hex( "...... . ." ) ), badLength );
   EXPECT_EQ( with( "0010 8001", "" ), cutOff );
   EXPECT_EQ( with( "0010 8001", hex( "0261" ) ), cutOff );
   EXPECT_EQ( with( "0010 8001", hex( "0161 00" ) ), "heard" );
   EXPECT_EQ( with( "002f 8001", "" ), "heard" ); // not looked at
   EXPECT_EQ( refusalOf( udp4( mdnsWay, "c000 14e9", hostResponse( 120 ) ) ), badValue );
   EXPECT_EQ( refusalOf( mdnsFrame( hex( ".. 8400" ) ) ), cutOff );
}

} // namespace
} // namespace Derivation::Test
