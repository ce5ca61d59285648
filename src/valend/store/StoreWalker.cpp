#include "valend/store/StoreWalker.h"

#include "settings/Hex.h"
#include "valend/base/Errors.h"

#include <algorithm>
#include <functional>

namespace Valend {

using Quill::Attribute;
using Quill::AttrKind;
using Quill::Entity;
using Quill::Ptr;
using Quill::Value;

namespace {

Json textJson( std::string_view bytes ) {
   bool const isText =
      std::all_of( bytes.begin(), bytes.end(), []( char c ) { return c >= 0x20 && c < 0x7f; } );
   return isText ? std::string( bytes ) : "0x" + Settings::toHex( bytes );
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

struct PlainJson {
   Json operator()( std::monostate ) const { return nullptr; }
   Json operator()( bool value ) const { return value; }
   Json operator()( S64 value ) const { return value; }
   Json operator()( double value ) const { return value; }
   Json operator()( Quill::String const & value ) const { return textJson( value.view() ); }
   Json operator()( Ptr< Entity const > const & ) const { return nullptr; } // not reached
};

// One walk.
class Walk {
 public:
   explicit Walk( StoreVisits * visits ) : visits_( visits ) {}

   // What is below the entity at `path`.
   std::optional< Json > below( Entity const & entity, std::string_view path ) {
      visit( entity );
      if ( path.empty() ) {
         return entityJson( entity );
      }
      auto const & type = entity.entityType();
      if ( dynamic_cast< Quill::Dir const * >( &entity ) ) {
         return element( entity, *type.attribute( "entry" ), path );
      }
      auto const end = path.find( '/' );
      auto const * const attribute = type.attribute( path.substr( 0, end ) );
      if ( !attribute ) {
         return std::nullopt;
      }
      auto const rest = end == std::string_view::npos ? std::string_view() : path.substr( end + 1 );
      if ( rest.empty() ) {
         return attributeJson( entity, *attribute );
      }
      return attribute->isCollection() ? element( entity, *attribute, rest )
                                       : value( entity, attribute->element( entity, "" ), rest );
   }

   // Calls `found` with each way to part a key that may hold '/' from the rest of `path`, the
   // shortest key first, until it returns something.
   static std::optional< Json > eachSplit(
      std::string_view path,
      std::function< std::optional< Json >( std::string_view key, std::string_view rest ) > const &
         found ) {
      for ( auto end = path.find( '/' );; end = path.find( '/', end + 1 ) ) {
         auto const key = path.substr( 0, end );
         auto const rest =
            end == std::string_view::npos ? std::string_view() : path.substr( end + 1 );
         if ( auto json = found( key, rest ) ) {
            return json;
         }
         if ( end == std::string_view::npos ) {
            return std::nullopt;
         }
      }
   }

 private:
   void visit( Entity const & entity ) {
      if ( visits_ ) {
         visits_->emplace_back( &entity );
      }
   }

   Json entityJson( Entity const & entity ) {
      auto const & type = entity.entityType();
      if ( auto const * const entries = dynamic_cast< Quill::Dir const * >( &entity ) ) {
         return attributeJson( *entries, *type.attribute( "entry" ) ); // a directory is its entries
      }
      Json json = Json::object();
      for ( auto const & attribute : type.attributes ) {
         json[ attribute.name ] = attributeJson( entity, attribute );
      }
      return json;
   }

   Json attributeJson( Entity const & entity, Attribute const & attribute ) {
      bool const isList = attribute.kind == AttrKind::queue || attribute.kind == AttrKind::set;
      Json json = !attribute.isCollection() ? Json() : isList ? Json::array() : Json::object();
      attribute.visit( entity, [ & ]( std::string const & key, Value const & value ) {
         if ( !attribute.isCollection() ) {
            json = valueJson( entity, value );
         } else if ( isList ) {
            json.push_back( valueJson( entity, value ) );
         } else {
            json[ key ] = valueJson( entity, value );
         }
      } );
      return json;
   }

   Json valueJson( Entity const & holder, Value const & value ) {
      if ( ++values_ > maxStoreValues ) {
         throw Errors::tooManyValues( maxStoreValues );
      }
      if ( auto const * const entity = std::get_if< Ptr< Entity const > >( &value ) ) {
         if ( ( *entity )->parent() != &holder ) {
            return "-> " + referenceText( **entity );
         }
         visit( **entity );
         return entityJson( **entity );
      }
      return std::visit( PlainJson(), value );
   }

   std::optional< Json > value( Entity const & holder, Value const & value,
                                std::string_view path ) {
      if ( std::holds_alternative< std::monostate >( value ) ) {
         return std::nullopt;
      }
      if ( auto const * const entity = std::get_if< Ptr< Entity const > >( &value ) ) {
         return below( **entity, path ); // asked for by name, a reference is followed
      }
      return path.empty() ? std::optional( valueJson( holder, value ) ) : std::nullopt;
   }

   std::optional< Json > element( Entity const & entity, Attribute const & attribute,
                                  std::string_view path ) {
      return eachSplit( path, [ & ]( std::string_view key, std::string_view rest ) {
         return value( entity, attribute.element( entity, key ), rest );
      } );
   }

   StoreVisits * const visits_;
   std::size_t values_ = 0;
};

} // namespace

std::optional< Json > showPath( Orrery::EntityManager const & entityManager, std::string_view path,
                                StoreVisits * visits ) {
   while ( path.starts_with( '/' ) ) {
      path.remove_prefix( 1 );
   }
   while ( path.ends_with( '/' ) ) {
      path.remove_suffix( 1 );
   }
   Walk walk( visits );
   auto const mounted =
      Walk::eachSplit( path, [ & ]( std::string_view prefix, std::string_view rest ) {
         auto const entity = entityManager.mounted( prefix );
         return entity ? walk.below( *entity, rest ) : std::nullopt;
      } );
   return mounted ? mounted : walk.below( *entityManager.root(), path );
}

} // namespace Valend
