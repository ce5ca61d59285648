#include "database/ReplyReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Database {
namespace {

using ::testing::HasSubstr;
using Type = Reply::Type;

TEST( ReplyReaderTest, EveryKindOfReply ) {
   ReplyReader reader( 1000 );
   reader.feed(
      "+OK\r\n-ERR no\r\n:-5\r\n$3\r\na\r\n\r\n$-1\r\n*2\r\n*1\r\n:1\r\n$0\r\n\r\n*0\r\n*-1\r\n" );
   auto reply = reader.next();
   EXPECT_EQ( reply->type, Type::status );
   EXPECT_EQ( reply->text, "OK" );
   reply = reader.next();
   EXPECT_TRUE( reply->failedWith( "ERR" ) );
   EXPECT_EQ( reply->text, "ERR no" );
   reply = reader.next();
   EXPECT_EQ( reply->type, Type::number );
   EXPECT_EQ( reply->number, -5 );
   reply = reader.next();
   EXPECT_EQ( reply->type, Type::text );
   EXPECT_EQ( reply->text, "a\r\n" );
   EXPECT_EQ( reader.next()->type, Type::nothing );
   reply = reader.next();
   ASSERT_EQ( reply->items.size(), 2u );
   ASSERT_EQ( reply->items[ 0 ].items.size(), 1u );
   EXPECT_EQ( reply->items[ 0 ].items[ 0 ].number, 1 );
   EXPECT_EQ( reply->items[ 1 ].type, Type::text );
   EXPECT_EQ( reader.next()->type, Type::list );
   EXPECT_EQ( reader.next()->type, Type::nothing );
   EXPECT_FALSE( reader.next() );
   EXPECT_EQ( reader.error(), "" );
}

TEST( ReplyReaderTest, ARepliesBytesMayComeOneByOne ) {
   ReplyReader reader( 1000 );
   std::string const bytes = "*2\r\n$5\r\nhello\r\n:1\r\n";
   for ( auto const c : bytes.substr( 0, bytes.size() - 1 ) ) {
      reader.feed( { &c, 1 } );
      EXPECT_FALSE( reader.next() );
   }
   reader.feed( "\n" );
   EXPECT_EQ( reader.next()->items[ 0 ].text, "hello" );
}

TEST( ReplyReaderTest, ALargeTextIsAnErrorBeforeItIsKept ) {
   ReplyReader reader( 1000 );
   reader.feed( "$1000000\r\n" );
   EXPECT_FALSE( reader.next() );
   EXPECT_EQ( reader.error(), "" );
   reader.feed( std::string( 1001, 'x' ) );
   EXPECT_FALSE( reader.next() );
   EXPECT_EQ( reader.error(), "a reply has more than 1000 bytes" );
}

TEST( ReplyReaderTest, AnAnnouncedListIsAnErrorBeforeItIsMade ) {
   ReplyReader reader( 1 << 20 );
   reader.feed( "*2000000000\r\n" );
   EXPECT_FALSE( reader.next() );
   EXPECT_THAT( reader.error(), HasSubstr( "a reply has more than" ) );
}

TEST( ReplyReaderTest, ManySmallItemsAreAsLargeAsOneLarge ) {
   ReplyReader reader( 1000 );
   for ( int i = 0; i < 100 && reader.error().empty(); ++i ) {
      reader.feed( i ? "*5\r\n:1\r\n:1\r\n:1\r\n:1\r\n:1\r\n" : "*100\r\n" );
      EXPECT_FALSE( reader.next() );
   }
   EXPECT_THAT( reader.error(), HasSubstr( "a reply has more than" ) );
}

TEST( ReplyReaderTest, EachReplyHasTheBoundForItself ) {
   ReplyReader reader( 1000 );
   for ( int i = 0; i < 100; ++i ) {
      reader.feed( "$500\r\n" + std::string( 500, 'x' ) + "\r\n" );
      ASSERT_TRUE( reader.next() ) << reader.error();
   }
}

TEST( ReplyReaderTest, GarbageIsAnErrorForGood ) {
   for ( auto const * bytes :
         { "HTTP/1.1 400 Bad Request\r\n", "$x\r\n", "*99999999999999999999\r\n", ":\r\nx",
           "*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n:1\r\n" } ) {
      ReplyReader reader( 1000 );
      reader.feed( bytes );
      while ( reader.next() ) {
      }
      EXPECT_THAT( reader.error(), HasSubstr( "the server does not speak the protocol: " ) )
         << bytes;
      reader.feed( "+OK\r\n" );
      EXPECT_FALSE( reader.next() );
   }
}

} // namespace
} // namespace Database
