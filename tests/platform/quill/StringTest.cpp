// Strings and interned names: sharing, equality, order, hashes, and the bounds of names.
#include "platform/quill/String.h"

#include "platform/corvid/IntfId.h"
#include "platform/corvid/NamespaceName.h"
#include "platform/quill/Exception.h"
#include "tests/support/LeakCheck.h"

#include <set>
#include <sstream>

namespace {

using Corvid::IntfId;
using Corvid::NamespaceName;
using Quill::Name;
using Quill::String;

class StringTest : public ::testing::Test, private Valen::Test::LeakCheck {};

TEST_F( StringTest, EmptyStringHasNoBytes ) {
   for ( String const & empty : { String(), String( "" ), String( std::string() ) } ) {
      EXPECT_TRUE( empty.empty() );
      EXPECT_EQ( empty.length(), 0 );
      EXPECT_EQ( empty.view(), "" );
      EXPECT_EQ( empty.hash(), 0 );
      EXPECT_EQ( empty, String() );
   }
   EXPECT_EQ( Name(), Name( "" ) );
   EXPECT_EQ( Name().hash(), 0 );
   EXPECT_EQ( Name().stringValue(), String() );
}

TEST_F( StringTest, EveryByteIsKept ) {
   std::string const bytes( "a\0\xff\n", 4 );
   String const string( bytes );
   EXPECT_EQ( string.length(), 4 );
   EXPECT_EQ( string.stdString(), bytes );
   EXPECT_FALSE( string.empty() );
   EXPECT_EQ( Name( bytes ).stdString(), bytes );
   EXPECT_NE( string, String( "a" ) );
}

TEST_F( StringTest, CopiesShareTheirBytes ) {
   String const string( "shared" );
   String copy = string;
   EXPECT_EQ( copy.view().data(), string.view().data() );
   copy += "!";
   EXPECT_EQ( copy, "shared!" );
   EXPECT_EQ( string, "shared" ) << "immutable";
}

TEST_F( StringTest, ConcatenationJoinsBytes ) {
   EXPECT_EQ( String( "a" ) + "bc", "abc" );
   EXPECT_EQ( String() + "b", "b" );
   EXPECT_EQ( String( "a" ) + String(), "a" );
   EXPECT_EQ( String() + String(), String() );
   String twice( "ab" );
   twice += twice;
   EXPECT_EQ( twice, "abab" );
}

TEST_F( StringTest, AssignmentKeepsOrLetsGo ) {
   String a( "a" );
   String b( "b" );
   a = b;
   EXPECT_EQ( a.view().data(), b.view().data() );
   b = String( "c" );
   EXPECT_EQ( a, "b" );
   EXPECT_EQ( b, "c" );
   auto const & same = a;
   a = same;
   EXPECT_EQ( a, "b" );
   String const moved = std::move( a );
   EXPECT_EQ( moved, "b" );
   EXPECT_TRUE( a.empty() ); // NOLINT(bugprone-use-after-move)
}

TEST_F( StringTest, OrderIsThatOfTheBytes ) {
   EXPECT_LT( String(), String( "a" ) );
   EXPECT_LT( String( "a" ), String( "aa" ) );
   EXPECT_LT( String( "Z" ), String( "a" ) );
   EXPECT_FALSE( String( "a" ) < String( "a" ) );
   EXPECT_LT( Name( "Ethernet10" ), Name( "Ethernet2" ) );
   EXPECT_FALSE( Name( "b" ) < Name( "a" ) );
}

TEST_F( StringTest, EqualStringsHaveEqualHashesHoweverTheyWereMade ) {
   String const whole( "interface" );
   String const joined = String( "inter" ) + "face";
   EXPECT_NE( whole.view().data(), joined.view().data() );
   EXPECT_EQ( whole, joined );
   EXPECT_EQ( whole.hash(), joined.hash() );
   EXPECT_EQ( whole.hash(), Name( "interface" ).hash() );
   EXPECT_EQ( whole.hash(), whole.hash() ) << "the second time, too";
   EXPECT_NE( whole.hash(), String( "interfacf" ).hash() );
}

TEST_F( StringTest, HashesOfSimilarNamesDifferInTheLowBits ) {
   std::set< U64 > buckets;
   for ( int port = 0; port < 256; ++port ) {
      buckets.insert( String( "Ethernet" + std::to_string( port ) ).hash() & 255 );
   }
   EXPECT_GT( buckets.size(), 128 );
}

TEST_F( StringTest, StreamsAsItsBytes ) {
   std::ostringstream stream;
   stream << String( "text" ) << '/' << Name( "name" ) << '/' << IntfId( "Ethernet3/1" )
          << String();
   EXPECT_EQ( stream.str(), "text/name/Ethernet3/1" );
}

TEST_F( StringTest, EqualNamesShareTheirBytes ) {
   Name const one( "agent" );
   Name const other( std::string( "agent" ) );
   EXPECT_EQ( one, other );
   EXPECT_EQ( one.identity(), other.identity() );
   EXPECT_EQ( one.view().data(), other.view().data() );
   EXPECT_NE( one, Name( "Agent" ) );
   EXPECT_NE( one.identity(), Name( "Agent" ).identity() );
}

TEST_F( StringTest, NamesOfDifferentKindsShareBytesToo ) {
   Name const name( "Ethernet1" );
   IntfId const intfId( name.stringValue() );
   EXPECT_EQ( intfId.identity(), name.identity() );
   EXPECT_EQ( intfId.stringValue(), "Ethernet1" );
}

TEST_F( StringTest, StringOfANameGivesTheNameBackWithoutASearch ) {
   Name name( "agent" );
   auto const * const bytes = name.view().data();
   String const string = name.stringValue();
   name = Name();
   EXPECT_EQ( Name( string ).view().data(), bytes );
   EXPECT_EQ( Name( String( "ag" ) + "ent" ).view().data(), bytes ) << "found by its bytes";
}

TEST_F( StringTest, LastHandleFreesAName ) {
   auto const before = Quill::liveObjects();
   {
      Name const name( "seen nowhere else" );
      Name const same( "seen nowhere else" );
      EXPECT_EQ( Quill::liveObjects(), before + 1 );
   }
   EXPECT_EQ( Quill::liveObjects(), before );
   EXPECT_EQ( Name( "seen nowhere else" ).stdString(), "seen nowhere else" );
}

TEST_F( StringTest, ManyNamesAreKeptApart ) {
   std::vector< Name > names;
   for ( int number = 0; number < 2000; ++number ) {
      names.emplace_back( "name " + std::to_string( number ) );
   }
   for ( int number = 0; number < 2000; ++number ) {
      EXPECT_EQ( names[ static_cast< std::size_t >( number ) ],
                 Name( "name " + std::to_string( number ) ) );
   }
}

// The text of the range error of making a `T` of `length` bytes; empty if it succeeds.
template < class T > std::string rangeError( std::size_t length ) {
   Quill::Expect const expected( Quill::ExceptionId::range );
   try {
      EXPECT_EQ( T( std::string( length, 'x' ) ).length(), length );
      return std::string();
   } catch ( Quill::RangeException const & e ) {
      return e.what();
   }
}

TEST_F( StringTest, NamespaceNameHasAtMost150Bytes ) {
   EXPECT_EQ( rangeError< NamespaceName >( 150 ), "" );
   EXPECT_EQ( rangeError< NamespaceName >( 151 ), "NamespaceName::bytes > 150 not allowed" );
   EXPECT_EQ( rangeError< NamespaceName >( 4096 ), "NamespaceName::bytes > 150 not allowed" );
}

TEST_F( StringTest, LengthAtTheLimitIsAllowedAndOneMoreIsRejectedWithTheGivenText ) {
   Quill::Expect const expected( Quill::ExceptionId::range );
   EXPECT_EQ( Quill::requireLength( "four", 4, "too long" ), "four" );
   EXPECT_EQ( Quill::requireLength( "", 0, "too long" ), "" );
   try {
      Quill::requireLength( "fours", 4, "too long" );
      FAIL() << "it was allowed";
   } catch ( Quill::RangeException const & e ) {
      EXPECT_STREQ( e.what(), "too long" );
   }
}

TEST_F( StringTest, BoundHoldsWhateverTheNameIsMadeFrom ) {
   Quill::Expect const expected( Quill::ExceptionId::range );
   std::string const longName( 151, 'x' );
   EXPECT_THROW( NamespaceName( longName.c_str() ), Quill::RangeException );
   EXPECT_THROW( NamespaceName( String( longName ) ), Quill::RangeException );
   EXPECT_THROW( NamespaceName( Name( longName ).stringValue() ), Quill::RangeException );
}

TEST_F( StringTest, OtherNamesHaveNoBound ) {
   EXPECT_EQ( rangeError< Name >( 4096 ), "" );
   EXPECT_EQ( rangeError< IntfId >( 4096 ), "" );
}

TEST_F( StringTest, DefaultNamespaceHasItsName ) {
   EXPECT_EQ( NamespaceName::defaultNamespace().view(), "default" );
   EXPECT_EQ( NamespaceName::defaultNamespace(), NamespaceName( "default" ) );
}

} // namespace
