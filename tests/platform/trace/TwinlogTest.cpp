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

TEST( Twinlog, TextIsCutAtItsCapacity ) {
   std::string const nearly( Twinlog::Text::capacity - 3, 'x' );
   EXPECT_EQ( formatted( "%s%s", { text( nearly ), number( 123456 ) } ), nearly + "123" );
   EXPECT_EQ( formatted( "%s%s%s", { text( nearly ), text( "abc" ), text( "d" ) } ),
              nearly + "abc" );
   EXPECT_EQ( formatted( std::string( 5000, 'y' ), {} ),
              std::string( Twinlog::Text::capacity, 'y' ) );
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
   EXPECT_FALSE( text.full() );
}

TEST( Twinlog, WholeLineIsSignatureColonMessage ) {
   Twinlog::Text line;
   Value const values[] = { text( "red" ) };
   Twinlog::formatLine( line, "void f()", "vrf %s", values );
   EXPECT_EQ( line.view(), "void f(): vrf red" );
}

} // namespace
