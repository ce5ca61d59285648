// Reflection: an entity's type as its attribute lines define it, values in generic form, the way
// back, and display forms.
#include "platform/quill/Reflection.h"

#include "platform/corvid/NamespaceName.h"
#include "platform/quill/Dir.h"
#include "platform/quill/EntityTables.h"
#include "tests/platform/quill/EntityModel.h"
#include "tests/support/LeakCheck.h"

#include <limits>

namespace {

using Quill::Attribute;
using Quill::AttrKind;
using Quill::display;
using Quill::Entity;
using Quill::EntityType;
using Quill::make;
using Quill::Name;
using Quill::Ptr;
using Quill::String;
using Quill::Value;
using Valen::Test::Box;
using Valen::Test::Colour;
using Valen::Test::Shelf;

using Texts = std::vector< std::string >;

// A value as text: its kind, then its value.
std::string shown( Value const & value ) {
   struct Show {
      std::string operator()( std::monostate ) const { return "nothing"; }
      std::string operator()( bool truth ) const { return truth ? "true" : "false"; }
      std::string operator()( S64 number ) const { return "number " + std::to_string( number ); }
      std::string operator()( double number ) const { return "real " + std::to_string( number ); }
      std::string operator()( String const & bytes ) const { return "bytes " + bytes.stdString(); }
      std::string operator()( Ptr< Entity const > const & entity ) const {
         return "entity " + display( entity );
      }
   };
   return std::visit( Show(), value );
}

// The error with which `call` fails; empty if it succeeds.
template < class Call > std::string rangeError( Call const & call ) {
   Quill::Expect const expected( Quill::ExceptionId::range );
   try {
      call();
      return std::string();
   } catch ( Quill::RangeException const & e ) {
      return e.what();
   }
}

class ReflectionTest : public ::testing::Test, private Valen::Test::LeakCheck {
 protected:
   ReflectionTest() {
      shelf_->widthIs( 65535 );
      shelf_->loadIs( 2.5 );
      shelf_->colourIs( Colour::red );
      shelf_->labelIs( "top" );
      shelf_->boxIs( "a", 1u, nullptr );
      shelf_->boxIs( "b", 2u, lamp_ );
      shelf_->slotIs( 4, lamp_ );
      shelf_->noteIs( "n", "text" );
      shelf_->tagIs( "red" );
      shelf_->guestIs( lamp_ );
      shelf_->messageEnq( "first" );
      shelf_->messageEnq( "second" );
   }

   static Attribute const & attribute( std::string_view name ) {
      return *Shelf::staticType().attribute( name );
   }
   Texts visited( std::string_view name ) const {
      Texts texts;
      attribute( name ).visit( *shelf_, [ & ]( std::string const & key, Value const & value ) {
         texts.push_back( key + ": " + shown( value ) );
      } );
      return texts;
   }
   std::string element( std::string_view name, std::string_view key ) const {
      return shown( attribute( name ).element( *shelf_, key ) );
   }

   Ptr< Box > const lamp_ = make< Box >( "lamp" );
   Ptr< Shelf > const shelf_ = make< Shelf >();
};

TEST_F( ReflectionTest, TypeHasItsNameAndItsAttributesInOrder ) {
   Entity const & entity = *shelf_;
   EXPECT_EQ( &entity.entityType(), &Shelf::staticType() );
   EXPECT_STREQ( entity.entityType().name, "Valen::Test::Shelf" );
   Texts names;
   for ( auto const & each : entity.entityType().attributes ) {
      names.push_back( each.name );
   }
   EXPECT_EQ( names, ( Texts{ "width", "full", "load", "colour", "label", "lamp", "box", "slot",
                              "note", "tag", "guest", "message" } ) );
   EXPECT_STREQ( Quill::Dir::staticType().name, "Quill::Dir" );
   EXPECT_EQ( Quill::Dir::staticType().attributes.size(), 1 );
}

TEST_F( ReflectionTest, AttributeIsFoundByNameAndById ) {
   EXPECT_EQ( attribute( "width" ).id, Shelf::widthAttr::id );
   EXPECT_EQ( Shelf::staticType().attribute( Shelf::messageAttr::id ), &attribute( "message" ) );
   EXPECT_EQ( Shelf::staticType().attribute( "" ), nullptr );
   EXPECT_EQ( Shelf::staticType().attribute( "Width" ), nullptr );
   EXPECT_EQ( Shelf::staticType().attribute( "widths" ), nullptr );
   EXPECT_EQ( Shelf::staticType().attribute( Quill::AttrId( 0 ) ), nullptr );
}

TEST_F( ReflectionTest, EveryKindIsReportedAndWhetherItIsACollection ) {
   EXPECT_EQ( Box::staticType().attribute( "weight" )->kind, AttrKind::parameter );
   EXPECT_EQ( attribute( "width" ).kind, AttrKind::single );
   EXPECT_EQ( attribute( "box" ).kind, AttrKind::members );
   EXPECT_EQ( attribute( "slot" ).kind, AttrKind::map );
   EXPECT_EQ( attribute( "tag" ).kind, AttrKind::set );
   EXPECT_EQ( attribute( "message" ).kind, AttrKind::queue );
   EXPECT_FALSE( Box::staticType().attribute( "weight" )->isCollection() );
   EXPECT_FALSE( attribute( "width" ).isCollection() );
   EXPECT_TRUE( attribute( "box" ).isCollection() );
   EXPECT_TRUE( attribute( "message" ).isCollection() );
}

TEST_F( ReflectionTest, SingleValueIsVisitedWithoutAKey ) {
   EXPECT_EQ( visited( "width" ), Texts{ ": number 65535" } );
   EXPECT_EQ( visited( "full" ), Texts{ ": false" } );
   EXPECT_EQ( visited( "load" ), Texts{ ": real 2.500000" } );
   EXPECT_EQ( visited( "colour" ), Texts{ ": number 3" } );
   EXPECT_EQ( visited( "label" ), Texts{ ": bytes top" } );
   EXPECT_EQ( visited( "lamp" ), Texts{ ": nothing" } );
}

TEST_F( ReflectionTest, CollectionIsVisitedInOrderWithItsKeys ) {
   auto const lamp = "entity " + display( lamp_ );
   EXPECT_EQ( visited( "box" ), ( Texts{ "a: entity " + display( shelf_->box( "a" ) ),
                                         "b: entity " + display( shelf_->box( "b" ) ) } ) );
   EXPECT_EQ( visited( "slot" ), Texts{ "4: " + lamp } );
   EXPECT_EQ( visited( "note" ), Texts{ "n: bytes text" } );
   EXPECT_EQ( visited( "tag" ), Texts{ "red: bytes red" } );
   EXPECT_EQ( visited( "guest" ), Texts{ display( lamp_ ) + ": " + lamp } );
   EXPECT_EQ( visited( "message" ), ( Texts{ "0: bytes first", "1: bytes second" } ) );
}

TEST_F( ReflectionTest, EntryOfADirectoryIsVisitedBeforeItsEntityIsThere ) {
   auto const dir = make< Quill::Dir >();
   dir->entryIs( "early" );
   dir->entryIs( "lamp", lamp_ );
   Texts texts;
   auto const & entry = *dir->entityType().attribute( "entry" );
   entry.visit( *dir, [ & ]( std::string const & key, Value const & value ) {
      texts.push_back( key + ": " + shown( value ) );
   } );
   EXPECT_EQ( texts, ( Texts{ "early: nothing", "lamp: entity " + display( lamp_ ) } ) );
   EXPECT_EQ( entry.count( *dir ), 2 );
}

TEST_F( ReflectionTest, CountIsThatOfTheElements ) {
   EXPECT_EQ( attribute( "box" ).count( *shelf_ ), 2 );
   EXPECT_EQ( attribute( "message" ).count( *shelf_ ), 2 );
   EXPECT_EQ( attribute( "tag" ).count( *shelf_ ), 1 );
   EXPECT_EQ( attribute( "width" ).count( *shelf_ ), 1 );
   shelf_->boxDelAll();
   EXPECT_EQ( attribute( "box" ).count( *shelf_ ), 0 );
}

TEST_F( ReflectionTest, ElementIsFoundByTheDisplayFormOfItsKey ) {
   auto const lamp = "entity " + display( lamp_ );
   EXPECT_EQ( element( "box", "b" ), "entity " + display( shelf_->box( "b" ) ) );
   EXPECT_EQ( element( "slot", "4" ), lamp );
   EXPECT_EQ( element( "note", "n" ), "bytes text" );
   EXPECT_EQ( element( "tag", "red" ), "bytes red" );
   EXPECT_EQ( element( "guest", display( lamp_ ) ), lamp );
   EXPECT_EQ( element( "message", "1" ), "bytes second" );
   EXPECT_EQ( element( "width", "" ), "number 65535" );
   for ( char const * name : { "box", "slot", "note", "tag", "guest", "message", "width" } ) {
      EXPECT_EQ( element( name, "absent" ), "nothing" ) << name;
   }
}

// A member under a name of limited length, and its owner.
class Room final : public Entity {
   QUILL_ENTITY( Room )
 public:
   explicit Room( Corvid::NamespaceName name ) : name_( std::move( name ) ) {}
   QUILL_PARAMETER( Corvid::NamespaceName, name )
};

class House final : public Entity {
   QUILL_ENTITY( House )
 public:
   QUILL_MEMBERS( Room, room, name )
};

QUILL_ENTITY_TABLES( Room )
QUILL_ENTITY_TABLES( House )

TEST_F( ReflectionTest, KeyThatCannotBeFormedIsNotThere ) {
   Quill::Expect const expected( Quill::ExceptionId::range );
   auto const house = make< House >();
   auto const room = house->roomIs( std::string( 150, 'x' ) );
   auto const & rooms = *House::staticType().attribute( "room" );
   EXPECT_EQ( shown( rooms.element( *house, std::string( 150, 'x' ) ) ),
              "entity " + display( room ) );
   EXPECT_EQ( shown( rooms.element( *house, std::string( 151, 'x' ) ) ), "nothing" );
}

TEST_F( ReflectionTest, NotificationKeyHasAText ) {
   Name const name( "red" );
   U32 const number = 4;
   EXPECT_EQ( attribute( "tag" ).keyText( &name ), "red" );
   EXPECT_EQ( attribute( "box" ).keyText( &name ), "red" );
   EXPECT_EQ( attribute( "slot" ).keyText( &number ), "4" );
   EXPECT_EQ( attribute( "guest" ).keyText( &lamp_ ), display( lamp_ ) );
   EXPECT_EQ( attribute( "message" ).keyText( &number ), "4" );
   EXPECT_EQ( attribute( "width" ).keyText( nullptr ), "" );
}

TEST_F( ReflectionTest, EntityIsBuiltFromItsParameters ) {
   std::vector< Value > const parameters{ String( "made" ), S64( 7 ),
                                          Ptr< Entity const >( lamp_ ) };
   auto const box = Quill::ptrCast< Box >( Box::staticType().construct( parameters ) );
   ASSERT_NE( box, nullptr );
   EXPECT_EQ( box->name(), Name( "made" ) );
   EXPECT_EQ( box->weight(), 7 );
   EXPECT_EQ( box->lid(), lamp_ );
   EXPECT_EQ( box->refs(), 1 );
   EXPECT_NE( Quill::ptrCast< Shelf >( Shelf::staticType().construct( {} ) ), nullptr );
   EXPECT_NE( Quill::ptrCast< Quill::Dir >( Quill::Dir::staticType().construct( {} ) ), nullptr );
}

TEST_F( ReflectionTest, ParametersThatDoNotFitAreRejected ) {
   auto const refused = []( std::vector< Value > const & parameters ) {
      return rangeError( [ & ] { Box::staticType().construct( parameters ); } );
   };
   EXPECT_EQ( refused( {} ), "Valen::Test::Box takes 3 constructor parameters, not 0" );
   EXPECT_EQ( refused( { S64( 1 ), S64( 1 ), Value(), Value() } ),
              "Valen::Test::Box takes 3 constructor parameters, not 4" );
   EXPECT_EQ( refused( { S64( 1 ), S64( 1 ), Value() } ), "value is not a string" );
   EXPECT_EQ( refused( { String( "a" ), String( "1" ), Value() } ),
              "value is not a whole number in range" );
   EXPECT_EQ( refused( { String( "a" ), S64( 1 ), S64( 0 ) } ),
              "value is not a handle of the parameter's type" );
   EXPECT_EQ( refused( { String( "a" ), S64( 1 ), Ptr< Entity const >( shelf_ ) } ),
              "value is not a handle of the parameter's type" );
   EXPECT_EQ( refused( { String( "a" ), S64( 1 ), Value() } ), "" );
   EXPECT_EQ(
      rangeError( [] { Quill::Dir::staticType().construct( std::vector< Value >{ S64( 1 ) } ); } ),
      "Quill::Dir takes 0 constructor parameters, not 1" );
}

TEST_F( ReflectionTest, NumberMustFitItsType ) {
   using Quill::fromValue;
   EXPECT_EQ( fromValue< U16 >( S64( 65535 ) ), 65535 );
   EXPECT_EQ( rangeError( [] { fromValue< U16 >( S64( 65536 ) ); } ),
              "value is not a whole number in range" );
   EXPECT_EQ( rangeError( [] { fromValue< U16 >( S64( -1 ) ); } ),
              "value is not a whole number in range" );
   EXPECT_EQ( fromValue< S64 >( std::numeric_limits< S64 >::min() ),
              std::numeric_limits< S64 >::min() );
   EXPECT_EQ( fromValue< Colour >( S64( 3 ) ), Colour::red );
   EXPECT_TRUE( fromValue< bool >( Value( true ) ) );
   EXPECT_EQ( rangeError( [] { fromValue< bool >( S64( 1 ) ); } ), "value is not a truth value" );
   EXPECT_EQ( fromValue< String >( String( "text" ) ), "text" );
}

// --- Display forms -------------------------------------------------------------------------------

struct Device {
   std::string displayValue() const { return "et1 (3)"; }
};

TEST( DisplayTest, EachKindOfValueHasItsForm ) {
   EXPECT_EQ( display( true ), "true" );
   EXPECT_EQ( display( false ), "false" );
   EXPECT_EQ( display( U8( 65 ) ), "65" );
   EXPECT_EQ( display( S64( -5 ) ), "-5" );
   EXPECT_EQ( display( std::numeric_limits< U64 >::max() ), "18446744073709551615" );
   EXPECT_EQ( display( Colour::red ), "3" );
   EXPECT_EQ( display( String( "bytes" ) ), "bytes" );
   EXPECT_EQ( display( Name( "name" ) ), "name" );
   EXPECT_EQ( display( Device() ), "et1 (3)" );
}

TEST( DisplayTest, HandleIsItsAddressInHexadecimalOrNull ) {
   EXPECT_EQ( display( Ptr< Box >() ), "null" );
   EXPECT_EQ( Quill::displayAddress( nullptr ), "null" );
   EXPECT_EQ( Quill::displayAddress( reinterpret_cast< void * >( 0xdeadbeef ) ), "0xdeadbeef" );
   auto const box = make< Box >( "box" );
   EXPECT_EQ( display( box ), Quill::displayAddress( box.get() ) );
}

TEST( DisplayTest, ValueOfAnyOtherTypeIsItsDisplayForm ) {
   EXPECT_EQ( shown( Quill::toValue( Device() ) ), "bytes et1 (3)" );
   EXPECT_EQ( shown( Quill::toValue( Name( "name" ) ) ), "bytes name" );
   EXPECT_EQ( shown( Quill::toValue( 1.5f ) ), "real 1.500000" );
   EXPECT_EQ( shown( Quill::toValue( Ptr< Box >() ) ), "nothing" );
}

} // namespace
