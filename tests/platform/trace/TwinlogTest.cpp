// Twinlog: from a format and its values to text.
#include "platform/trace/Twinlog.h"

#include <gtest/gtest.h>

namespace {

using Twinlog::Value;
using Kind = Value::Kind;

std::string formatted( std::string_view format, std::vector< Value > const & values ) {
   Twinlog::Text text;
   Twinlog::format( text, format, values );
   return std::string( text.view() );
}

Value text( std::string_view bytes ) {
   return { Kind::text, bytes };
}

Value number( S64 value ) {
   return { Kind::number, {}, static_cast< U64 >( value ) };
}

Value unsignedNumber( U64 value ) {
   return { Kind::unsignedNumber, {}, value };
}

TEST( Twinlog, PlaceholdersAreReplacedInOrder ) {
   EXPECT_EQ( formatted( "%s, %s and %x", { text( "a" ), number( 2 ), number( 255 ) } ),
              "a, 2 and ff" );
   EXPECT_EQ( formatted( "%s%s", { text( "a" ), text( "b" ) } ), "ab" );
}

TEST( Twinlog, NumbersAreShownToTheirLimits ) {
   EXPECT_EQ( formatted( "%s", { number( INT64_MIN ) } ), "-9223372036854775808" );
   EXPECT_EQ( formatted( "%s", { unsignedNumber( UINT64_MAX ) } ), "18446744073709551615" );
   EXPECT_EQ( formatted( "%x", { unsignedNumber( UINT64_MAX ) } ), "ffffffffffffffff" );
   EXPECT_EQ( formatted( "%s %x", { number( 0 ), number( 0 ) } ), "0 0" );
}

TEST( Twinlog, HexadecimalLeavesTextAsItIs ) {
   EXPECT_EQ( formatted( "%x", { text( "text" ) } ), "text" );
}

TEST( Twinlog, PlaceholderWithoutAValueStays ) {
   EXPECT_EQ( formatted( "%s and %s", { text( "a" ) } ), "a and %s" );
   EXPECT_EQ( formatted( "%x", {} ), "%x" );
}

TEST( Twinlog, ValueWithoutAPlaceholderIsSkipped ) {
   EXPECT_EQ( formatted( "only %s", { text( "a" ), text( "b" ) } ), "only a" );
   EXPECT_EQ( formatted( "", { text( "a" ) } ), "" );
}

TEST( Twinlog, OtherPercentSignsStay ) {
   EXPECT_EQ( formatted( "100%", { text( "a" ) } ), "100%" );
   EXPECT_EQ( formatted( "%d %%s %", { text( "a" ) } ), "%d %a %" );
   EXPECT_EQ( formatted( "%", {} ), "%" );
}

TEST( Twinlog, PlaceholdersInsideAValueAreNotReplaced ) {
   EXPECT_EQ( formatted( "%s %s", { text( "%s" ), text( "b" ) } ), "%s b" );
}

TEST( Twinlog, TextIsNeverCut ) {
   // Every piece that a text is made of crosses the end of the text's own space.
   for ( std::size_t length = Twinlog::Text::ownSize - 30; length <= Twinlog::Text::ownSize + 2;
         ++length ) {
      std::string const nearly( length, 'x' );
      EXPECT_EQ( formatted( "%s%s|%x%s", { text( nearly ), unsignedNumber( UINT64_MAX ),
                                           unsignedNumber( UINT64_MAX ), text( "end" ) } ),
                 nearly + "18446744073709551615|ffffffffffffffffend" );
      EXPECT_EQ( formatted( nearly + "%d%%", {} ), nearly + "%d%%" );
      EXPECT_EQ( formatted( nearly + "abc%s", { number( -5 ) } ), nearly + "abc-5" );
   }
   std::string const large( 1'000'000, 'y' );
   EXPECT_EQ( formatted( "%s%s", { text( large ), text( large ) } ), large + large );
}

TEST( Twinlog, ALongTextIsFollowedByAShortOne ) {
   Twinlog::Text line;
   std::string const large( 5000, 'y' );
   line.append( large );
   EXPECT_EQ( line.view(), large );
   line.clear();
   line.append( "short" );
   EXPECT_EQ( line.view(), "short" );
   line.append( large );
   EXPECT_EQ( line.view(), "short" + large );
}

TEST( Twinlog, BytesThatAreNoTextPassUnchanged ) {
   std::string_view const bytes( "a\0b\xff", 4 );
   EXPECT_EQ( formatted( "<%s>", { text( bytes ) } ), "<" + std::string( bytes ) + ">" );
}

TEST( Twinlog, ClearedTextStartsEmpty ) {
   Twinlog::Text text;
   text.append( "old" );
   text.clear();
   text.append( "new" );
   EXPECT_EQ( text.view(), "new" );
}

TEST( Twinlog, WholeLineIsSignatureColonMessage ) {
   Twinlog::Text line;
   Value const values[] = { text( "red" ) };
   Twinlog::formatLine( line, "void f()", "vrf %s", values );
   EXPECT_EQ( line.view(), "void f(): vrf red" );
}

} // namespace
