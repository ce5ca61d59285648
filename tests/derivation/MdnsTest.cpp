#include "derivation/Words.h"
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
   EXPECT_EQ( part( record( hex( "." ), "ff01 8001", 10, hex( "." ) ) ), ". TYPE65281" );
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
      constexpr std::size_t header = 12, addressRecord = 2 + 2 + 4 + 2 + 4;
      auto message = dnsHeader( pointers + 1 ) + record( hex( "." ), "0001 8001", 1, "addr" );
      for ( std::size_t i = 0; i < pointers; ++i ) {
         auto const to =
            i == 0 ? header : header + 1 + addressRecord + ( i - 1 ) * ( 2 + addressRecord );
         message += record( u16( 0xc000 + to ), "0001 8001", 1, "addr" );
      }
      return mdnsFrame( message );
   };
   EXPECT_EQ( refusalOf( chain( 127 ) ), "heard" );
   EXPECT_EQ( refusalOf( chain( 128 ) ), "mdns: a field has a value that is not allowed" );
}

// Else the goodbye, in which the times to live are others, would be about other names.
TEST( MdnsTest, ANameGoesOnInAnotherNameOnly ) {
   auto const badValue = "mdns: a field has a value that is not allowed";
   auto with = []( std::size_t to, std::string const & type = "000c 0001" ) {
      return refusalOf( mdnsFrame( dnsHeader( 2 ) +
                                   record( label( "a" ) + hex( "." ), type, 0x01620000,
                                           label( "b" ) + label( "c" ) + hex( "." ) ) +
                                   record( u16( 0xc000 + to ), "0001 8001", 1, "addr" ) ) );
   };
   for ( std::size_t const name : { 12U, 14U, 25U, 27U, 29U } ) {
      EXPECT_EQ( with( name ), "heard" ) << name;
   }
   for ( std::size_t const other : { 0U, 11U, 13U, 15U, 17U, 19U, 20U, 21U, 23U, 26U, 28U } ) {
      EXPECT_EQ( with( other ), badValue ) << other;
   }
   EXPECT_EQ( with( 25, "ff01 0001" ), badValue ) << "what is in unknown data is no name";
}

TEST( MdnsTest, DataHaveTheFormatOfTheirType ) {
   auto const ends = "mdns: it ends too early", badLength = "mdns: a length is wrong";
   auto with = []( std::size_t type, std::string const & data ) {
      return refusalOf( mdnsFrame(
         dnsHeader( 1 ) + record( hostName, hexText( u16( type ) ) + "8001", 1, hex( data ) ) ) );
   };
   struct Case {
      std::size_t type;
      char const * valid; // which one byte less or more is not
   };
   std::string const name = "0161 00";
   for ( std::size_t const type : { 2, 3, 4, 5, 7, 8, 9, 12, 23, 39 } ) {
      EXPECT_EQ( with( type, name ), "heard" ) << type;
      EXPECT_EQ( with( type, "c00c" ), "heard" ) << type;
      EXPECT_EQ( with( type, "01" ), ends ) << type;
      EXPECT_EQ( with( type, name + "00" ), badLength ) << type;
   }
   for ( auto const & [ type, valid ] : { Case{ 1, "...." },
                                          Case{ 28, ".... .... .... ...." },
                                          Case{ 6, "016100 016200 .... .... .... .... ...." },
                                          Case{ 13, "0161 0162" },
                                          Case{ 14, "016100 016200" },
                                          Case{ 15, ".. 016100" },
                                          Case{ 17, "016100 016200" },
                                          Case{ 18, ".. 016100" },
                                          Case{ 19, "0161" },
                                          Case{ 21, ".. 016100" },
                                          Case{ 26, ".. 016100 016200" },
                                          Case{ 27, "0161 0162 0163" },
                                          Case{ 29, ".... .... .... ...." },
                                          Case{ 33, "...... 016100" },
                                          Case{ 35, ".... 0161 0162 0163 016100" },
                                          Case{ 36, ".. 016100" },
                                          Case{ 51, ".... 0161" },
                                          Case{ 104, ".. .... ...." },
                                          Case{ 105, ".. ...." },
                                          Case{ 106, ".. .... ...." },
                                          Case{ 107, ".. 016100" },
                                          Case{ 108, "......" },
                                          Case{ 109, ".... ...." } } ) {
      auto const digits = std::string( valid );
      EXPECT_EQ( with( type, digits ), "heard" ) << type;
      auto const less = digits.substr( 0, digits.size() - ( digits.back() == '.' ? 1 : 2 ) );
      EXPECT_EQ( with( type, less ), ends ) << type;
      EXPECT_EQ( with( type, digits + "." ), badLength ) << type;
   }
   for ( auto const & [ type, shortest ] :
         { Case{ 11, "....." }, Case{ 24, ".... .... .... .... .. 016100" }, Case{ 25, "...." },
           Case{ 30, "016100" }, Case{ 37, "....." }, Case{ 43, "...." }, Case{ 44, ".." },
           Case{ 46, ".... .... .... .... .. 016100" }, Case{ 48, "...." }, Case{ 52, "..." },
           Case{ 53, "..." }, Case{ 59, "...." }, Case{ 60, "...." }, Case{ 63, "......" },
           Case{ 256, "...." }, Case{ 257, ". 0161" } } ) {
      auto const digits = std::string( shortest );
      EXPECT_EQ( with( type, digits ), "heard" ) << type;
      EXPECT_EQ( with( type, digits + "ff ffff" ), "heard" ) << type;
      auto const less = digits.substr( 0, digits.size() - ( digits.back() == '.' ? 1 : 2 ) );
      EXPECT_EQ( with( type, less ), ends ) << type;
   }
   for ( std::size_t const type : { 16, 20, 99 } ) {
      EXPECT_EQ( with( type, "0161 00" ), "heard" ) << type;
      EXPECT_EQ( with( type, "" ), ends ) << type;
      EXPECT_EQ( with( type, "0161 01" ), ends ) << type;
   }
   EXPECT_EQ( with( 65281, "ff" ), "heard" ) << "unknown";
   for ( std::size_t const type : { 0, 128, 250, 255 } ) {
      EXPECT_EQ( with( type, "" ), "mdns: a field has a value that is not allowed" ) << type;
   }
}

TEST( MdnsTest, ListsInDataAreVerified ) {
   auto const ends = "mdns: it ends too early", badLength = "mdns: a length is wrong";
   auto with = []( char const * type, std::string const & data ) {
      return refusalOf( mdnsFrame( dnsHeader( 1, 1 ) +
                                   record( hostName, "0001 8001", 1, hex( "...." ) ) +
                                   record( hostName, type, 1, hex( data ) ) ) );
   };
   for ( auto const & [ type, before ] :
         { std::pair( "002f 8001", "c00c" ), std::pair( "0032 8001", ".... 0161 0161" ),
           std::pair( "003e 8001", "......" ) } ) {
      std::string const list( before );
      EXPECT_EQ( with( type, list ), "heard" );
      EXPECT_EQ( with( type, list + "0001 40" ), "heard" );
      EXPECT_EQ( with( type, list + "0002 4001 0101 80" ), "heard" );
      EXPECT_EQ( with( type, list + "0020" + std::string( 32, '.' ) ), "heard" );
      EXPECT_EQ( with( type, list + "0021" + std::string( 33, '.' ) ), badLength );
      EXPECT_EQ( with( type, list + "0000" ), badLength );
      EXPECT_EQ( with( type, list + "0002 40" ), ends );
      EXPECT_EQ( with( type, list + "00" ), ends );
   }
   EXPECT_EQ( with( "002f 8001", "" ), ends );
   for ( auto const & [ type, before ] :
         { std::pair( "0029 05a0", "" ), std::pair( "0040 8001", "0001 016100" ),
           std::pair( "0041 8001", "0001 016100" ) } ) {
      std::string const list( before );
      EXPECT_EQ( with( type, list ), "heard" );
      EXPECT_EQ( with( type, list + "0004 0001 0a 0003 0000" ), "heard" );
      EXPECT_EQ( with( type, list + "0004 0002 0a" ), "mdns: a TLV goes beyond the end" );
      EXPECT_EQ( with( type, list + "0004 00" ), ends );
   }
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
   EXPECT_EQ( refusalOf( udp4( mdnsWay, "c000 14e9", hostResponse( 120 ) ) ), badValue );
   EXPECT_EQ( refusalOf( mdnsFrame( hex( ".. 8400" ) ) ), cutOff );
}

} // namespace
} // namespace Derivation::Test
