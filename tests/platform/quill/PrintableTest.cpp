#include "platform/quill/Printable.h"

#include <gtest/gtest.h>

namespace Quill {
namespace {

TEST( PrintableTest, TextIsUnchanged ) {
   for ( std::string const text : { "", "Ethernet1", "a b\\x", "\u00e4\u00f6", "\u00a0", "\u2027",
                                    "\u202f", "\u4e2d\u6587", "\U0001f600", "\U0010ffff" } ) {
      EXPECT_EQ( unprintableIn( text ), std::nullopt ) << text;
      EXPECT_EQ( printable( text ), text );
   }
}

TEST( PrintableTest, ControlCharactersAreNamedAndEscaped ) {
   struct Case {
      std::string_view text;
      std::string where;
      std::string escaped;
   };
   for ( auto const & each : { Case{ { "a\0b", 3 }, "character 2 is U+0000", "a\\x00b" },
                               Case{ "\x1b[31m", "character 1 is U+001B", "\\x1b[31m" },
                               Case{ "ab\n", "character 3 is U+000A", "ab\\x0a" },
                               Case{ "\x7f", "character 1 is U+007F", "\\x7f" },
                               Case{ "\u00e4\u0080", "character 2 is U+0080", "\u00e4\\xc2\\x80" },
                               Case{ "\u009f", "character 1 is U+009F", "\\xc2\\x9f" },
                               Case{ "\u061c", "character 1 is U+061C", "\\xd8\\x9c" },
                               Case{ "\u200f", "character 1 is U+200F", "\\xe2\\x80\\x8f" },
                               Case{ "\u2028", "character 1 is U+2028", "\\xe2\\x80\\xa8" },
                               Case{ "\u202e", "character 1 is U+202E", "\\xe2\\x80\\xae" },
                               Case{ "\u2069", "character 1 is U+2069", "\\xe2\\x81\\xa9" } } ) {
      EXPECT_EQ( unprintableIn( each.text ), each.where );
      EXPECT_EQ( printable( each.text ), each.escaped );
   }
}

// Of each range that is not printable, and the printable neighbors of those.
TEST( PrintableTest, TheFirstAndLastCharactersOfTheRangesAreKnown ) {
   EXPECT_NE( unprintableIn( { "\0", 1 } ), std::nullopt );
   for ( auto const * text : { "\x1f", "\x7f", "\u009f", "\u061c", "\u200e", "\u200f", "\u2028",
                               "\u202e", "\u2066", "\u2069" } ) {
      EXPECT_NE( unprintableIn( text ), std::nullopt ) << printable( text );
   }
   for ( auto const * text : { " ", "~", "\u00a0", "\u061b", "\u061d", "\u200d", "\u2010", "\u2027",
                               "\u202f", "\u2065", "\u206a" } ) {
      EXPECT_EQ( unprintableIn( text ), std::nullopt ) << text;
   }
}

TEST( PrintableTest, BytesThatAreNotUtf8AreNamedAndEscaped ) {
   for ( auto const & [ text, escaped ] :
         { std::pair< std::string, std::string >{ "\xff", "\\xff" },
           { "\x80", "\\x80" },
           { "\xc0\xaf", "\\xc0\\xaf" },                   // overlong
           { "\xe0\x80\xaf", "\\xe0\\x80\\xaf" },          // overlong
           { "\xed\xa0\x80", "\\xed\\xa0\\x80" },          // a surrogate
           { "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80" }, // beyond U+10FFFF
           { "\xf5\x80\x80\x80", "\\xf5\\x80\\x80\\x80" }, //
           { "\xf8\x90\x80\x80", "\\xf8\\x90\\x80\\x80" }, // no first byte of a character
           { "\xc3", "\\xc3" },                            // cut off
           { "\xe2\x80", "\\xe2\\x80" },                   //
           { "\xc3(", "\\xc3(" } } ) {
      auto const where = unprintableIn( "x" + text );
      EXPECT_EQ( where.value_or( "" ),
                 "character 2 is the byte 0x" + escaped.substr( 2, 2 ) + ", which is not UTF-8" );
      EXPECT_EQ( printable( text ), escaped );
   }
}

} // namespace
} // namespace Quill
