#include "database/address/Address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Database {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST( AddressTest, AUnixSocketWithOptions ) {
   Address const expected{
      .path = "/run/redis.sock", .database = 3, .user = "valend", .passwordFile = "/etc/secret" };
   EXPECT_EQ( Address::parse( "unix:///run/redis.sock?db=3&user=valend&password-file=/etc/secret" ),
              expected );
}

TEST( AddressTest, AServerWithUserAndPassword ) {
   Address const expected{
      .host = "db.example.net", .port = 7000, .user = "ops", .password = "a:b@/%" };
   EXPECT_EQ( Address::parse( "redis://ops:a:b%40%2f%25@db.example.net:7000" ), expected );
}

TEST( AddressTest, TheDefaultsOfAServer ) {
   auto const address = Address::parse( "redis://db" );
   EXPECT_EQ( address, ( Address{ .host = "db" } ) );
   EXPECT_EQ( address.port, 6379 );
   EXPECT_EQ( address.database, 0u );
}

TEST( AddressTest, AnIpv6AddressInBrackets ) {
   EXPECT_EQ( Address::parse( "redis://[2001:db8::1]:6380" ),
              ( Address{ .host = "2001:db8::1", .port = 6380 } ) );
   EXPECT_EQ( Address::parse( "redis://[::1]" ), ( Address{ .host = "::1" } ) );
}

TEST( AddressTest, ATextIsParsedAgainWithoutThePassword ) {
   for ( auto const * text :
         { "unix:///run/redis%20a.sock?db=3&user=valend&password-file=/etc/secret",
           "redis://db:6379", "redis://[2001:db8::1]:6380?user=a%3Fb", "unix:///x",
           "redis://[fe80::1%25eth0]:6379", "redis://[a:%5D]:6379" } ) {
      EXPECT_EQ( Address::parse( text ).text(), text );
   }
   EXPECT_EQ( Address::parse( "redis://ops:secret@db" ).text(), "redis://db:6379?user=ops" );
}

TEST( AddressTest, ErrorsSayWhatIsExpectedAndNeverThePassword ) {
   for ( auto const & [ text, error ] :
         { std::pair( "", "expected unix:///PATH or redis://[USER[:PASSWORD]@]HOST[:PORT]" ),
           std::pair( "http://secret", "expected unix:///PATH or redis://" ),
           std::pair( "unix://run/x", "the path is \"run/x\"; expected an absolute path" ),
           std::pair( "unix://", "expected an absolute path" ),
           std::pair( "redis://", "the host is not a name or an address" ),
           std::pair( "redis://u:secret@", "the host is not a name or an address" ),
           std::pair( "redis://db:0", "the port is not a number from 1 to 65535" ),
           std::pair( "redis://db:secret", "the port is not a number from 1 to 65535" ),
           std::pair( "redis://db:65536", "the port is not a number from 1 to 65535" ),
           std::pair( "redis://[::1", "the host has \"[\" without \"]\"" ),
           std::pair( "redis://[::1]x", "expected \":PORT\" or nothing after the host" ),
           std::pair( "redis://u:secret%4@db",
                      "the password has a \"%\" without two hexadecimal digits" ),
           std::pair( "redis://u:secret%00@db", "the password has a control character" ),
           std::pair( "redis://db?db=-1", "db is \"-1\"; expected a number from 0 to 65535" ),
           std::pair( "redis://db?secret", "an option after \"?\" is unknown; expected db=N" ),
           std::pair( "redis://a@db?user=b", "the user is given twice" ),
           std::pair( "redis://a:secret@db?password-file=/x",
                      "there are a password and a password-file" ),
           std::pair( "redis://db?password-file=x",
                      "password-file is \"x\"; expected an absolute path" ) } ) {
      try {
         Address::parse( text );
         ADD_FAILURE() << text;
      } catch ( InvalidAddress const & e ) {
         EXPECT_THAT( e.what(), HasSubstr( error ) );
         EXPECT_THAT( e.what(), Not( HasSubstr( "secret" ) ) );
      }
   }
   EXPECT_THROW( Address::parse( "unix:///" + std::string( 108, 'x' ) ), InvalidAddress );
}

} // namespace
} // namespace Database
