#include "varlink/Framing.h"

#include <gtest/gtest.h>

namespace Varlink {
namespace {

using namespace std::string_view_literals;

TEST( FramingTest, HalfAMessageWaitsForItsEnd ) {
   Framing framing( 10 );
   framing.feed( "hel" );
   EXPECT_EQ( framing.next(), std::nullopt );
   framing.feed( "lo\0rest"sv );
   EXPECT_EQ( framing.next(), "hello" );
   EXPECT_EQ( framing.next(), std::nullopt );
   EXPECT_EQ( framing.waiting(), 4u );
}

TEST( FramingTest, SeveralMessagesComeOutInOrder ) {
   Framing framing( 10 );
   framing.feed( "a\0\0b\0"sv );
   EXPECT_EQ( framing.next(), "a" );
   EXPECT_EQ( framing.next(), "" );
   EXPECT_EQ( framing.next(), "b" );
   EXPECT_EQ( framing.next(), std::nullopt );
}

TEST( FramingTest, AMessageOfTheLimitPassesAndALongerOneDoesNot ) {
   Framing framing( 3 );
   framing.feed( "abc\0"sv );
   EXPECT_EQ( framing.next(), "abc" );
   framing.feed( "abcd\0"sv );
   EXPECT_EQ( framing.next(), std::nullopt );
   EXPECT_TRUE( framing.tooLong() );
}

TEST( FramingTest, AMessageWithoutAnEndIsTooLongAsSoonAsItIs ) {
   Framing framing( 3 );
   framing.feed( "abc" );
   EXPECT_EQ( framing.next(), std::nullopt );
   EXPECT_FALSE( framing.tooLong() );
   framing.feed( "d" );
   EXPECT_EQ( framing.next(), std::nullopt );
   EXPECT_TRUE( framing.tooLong() );
   framing.feed( "\0x\0"sv );
   EXPECT_EQ( framing.next(), std::nullopt ) << "nothing is read past what was too long";
}

} // namespace
} // namespace Varlink
