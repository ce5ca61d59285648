#include "valend/store/StoreText.h"

#include "platform/quill/Dir.h"
#include "settings/Hex.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace Valend {

using Json = nlohmann::json;
using Quill::Attribute;
using Quill::AttrKind;
using Quill::Entity;
using Quill::Ptr;
using Quill::Value;

namespace {

bool isPrintable( std::string_view text ) {
   return std::all_of( text.begin(), text.end(), []( char c ) { return c >= 0x20 && c < 0x7f; } );
}

// `text` as a JSON string.
std::string jsonQuoted( std::string_view text ) {
   if ( !isPrintable( text ) ) {
      return Json( text ).dump( -1, ' ', false, Json::error_handler_t::replace );
   }
   std::string quoted = "\"";
   for ( auto const c : text ) {
      if ( c == '"' || c == '\\' ) {
         quoted += '\\';
      }
      quoted += c;
   }
   return quoted + '"';
}

// "Interface::IntfConfig Ethernet1": a type and the parameters that identify the entity.
std::string referenceText( Entity const & entity ) {
   std::string text = entity.entityType().name;
   for ( auto const & attribute : entity.entityType().attributes ) {
      if ( attribute.kind == AttrKind::parameter ) {
         attribute.visit( entity, [ & ]( std::string const &, Value const & value ) {
            if ( auto const * bytes = std::get_if< Quill::String >( &value ) ) {
               text += " " + bytes->stdString();
            } else if ( auto const * number = std::get_if< S64 >( &value ) ) {
               text += " " + std::to_string( *number );
            }
         } );
      }
   }
   return text;
}

struct PlainText {
   std::string operator()( std::monostate ) const { return "null"; }
   std::string operator()( bool value ) const { return value ? "true" : "false"; }
   std::string operator()( S64 value ) const { return std::to_string( value ); }
   std::string operator()( double value ) const { return Json( value ).dump(); }
   std::string operator()( Quill::String const & value ) const {
      auto const bytes = value.view();
      return isPrintable( bytes ) ? jsonQuoted( bytes ) : "\"0x" + Settings::toHex( bytes ) + '"';
   }
   std::string operator()( Ptr< Entity const > const & ) const { return "null"; } // not reached
};

// Writes the text of one entity.
class Writer {
 public:
   explicit Writer( Entity const & entity ) : entity_( entity ) {}

   StoreText take() && { return std::move( text_ ); }

   void entity() {
      auto const & type = entity_.entityType();
      if ( dynamic_cast< Quill::Dir const * >( &entity_ ) ) {
         return attribute( *type.attribute( "entry" ) ); // a directory is its entries
      }
      std::vector< Attribute const * > attributes;
      for ( auto const & attribute : type.attributes ) {
         attributes.push_back( &attribute );
      }
      std::sort( attributes.begin(), attributes.end(), []( auto const * a, auto const * b ) {
         return std::string_view( a->name ) < b->name;
      } );
      list( '{', '}', attributes, [ & ]( Attribute const * attribute ) {
         add( jsonQuoted( attribute->name ) + ':' );
         this->attribute( *attribute );
      } );
   }

   void attribute( Attribute const & attribute ) {
      std::vector< std::pair< std::string, Value > > elements;
      attribute.visit( entity_, [ & ]( std::string const & key, Value const & value ) {
         elements.emplace_back( key, value );
      } );
      if ( !attribute.isCollection() ) {
         return value( elements.empty() ? Value() : elements.front().second );
      }
      if ( attribute.kind == AttrKind::queue || attribute.kind == AttrKind::set ) {
         return list( '[', ']', elements,
                      [ & ]( auto const & element ) { value( element.second ); } );
      }
      std::sort( elements.begin(), elements.end(),
                 []( auto const & a, auto const & b ) { return a.first < b.first; } );
      list( '{', '}', elements, [ & ]( auto const & element ) {
         add( jsonQuoted( element.first ) + ':' );
         value( element.second );
      } );
   }

 private:
   void add( std::string_view text ) { text_.parts.back() += text; }

   template < class Items, class Write >
   void list( char begin, char end, Items const & items, Write const & write ) {
      auto separator = begin;
      for ( auto const & item : items ) {
         add( { &separator, 1 } );
         separator = ',';
         write( item );
      }
      if ( items.empty() ) {
         add( { &begin, 1 } );
      }
      add( { &end, 1 } );
   }

   void value( Value const & value ) {
      ++text_.values;
      auto const * const entity = std::get_if< Ptr< Entity const > >( &value );
      if ( !entity ) {
         return add( storeText( value ) );
      }
      if ( ( *entity )->parent() != &entity_ ) {
         return add( jsonQuoted( "-> " + referenceText( **entity ) ) );
      }
      text_.owned.push_back( *entity );
      text_.parts.emplace_back();
   }

   Entity const & entity_;
   StoreText text_;
};

} // namespace

StoreText storeText( Entity const & entity, Attribute const * only ) {
   Writer writer( entity );
   if ( only ) {
      writer.attribute( *only );
   } else {
      writer.entity();
   }
   return std::move( writer ).take();
}

std::string storeText( Value const & value ) {
   return std::visit( PlainText(), value );
}

} // namespace Valend
