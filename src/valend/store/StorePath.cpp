#include "valend/store/StorePath.h"

#include <functional>

namespace Valend {

using Quill::Attribute;
using Quill::Entity;
using Quill::Ptr;
using Quill::Value;

namespace {

using Place = std::optional< StorePlace >;

// Calls `found` with each way to part a key that may hold '/' from the rest of `path`, the shortest key
// first, until it returns something.
Place eachSplit(
   std::string_view path,
   std::function< Place( std::string_view key, std::string_view rest ) > const & found ) {
   for ( auto end = path.find( '/' );; end = path.find( '/', end + 1 ) ) {
      auto const key = path.substr( 0, end );
      auto const rest = end == std::string_view::npos ? std::string_view() : path.substr( end + 1 );
      if ( auto place = found( key, rest ) ) {
         return place;
      }
      if ( end == std::string_view::npos ) {
         return std::nullopt;
      }
   }
}

// One search.
class Search {
 public:
   explicit Search( StoreVisits & visits ) : visits_( visits ) {}

   // What is below the entity at `path`.
   Place below( Ptr< Entity const > const & entity, std::string_view path ) {
      visits_.push_back( entity );
      if ( path.empty() ) {
         return StorePlace{ entity };
      }
      auto const & type = entity->entityType();
      if ( dynamic_cast< Quill::Dir const * >( entity.get() ) ) {
         return element( entity, *type.attribute( "entry" ), path );
      }
      auto const end = path.find( '/' );
      auto const * const attribute = type.attribute( path.substr( 0, end ) );
      if ( !attribute ) {
         return std::nullopt;
      }
      auto const rest = end == std::string_view::npos ? std::string_view() : path.substr( end + 1 );
      if ( rest.empty() ) {
         return StorePlace{ entity, attribute };
      }
      return attribute->isCollection() ? element( entity, *attribute, rest )
                                       : value( entity, attribute->element( *entity, "" ), rest );
   }

 private:
   Place value( Ptr< Entity const > const & holder, Value const & value, std::string_view path ) {
      if ( std::holds_alternative< std::monostate >( value ) ) {
         return std::nullopt;
      }
      if ( auto const * const entity = std::get_if< Ptr< Entity const > >( &value ) ) {
         return below( *entity, path ); // asked for by name, a reference is followed
      }
      return path.empty() ? Place( StorePlace{ holder, nullptr, value } ) : std::nullopt;
   }

   Place element( Ptr< Entity const > const & entity, Attribute const & attribute,
                  std::string_view path ) {
      return eachSplit( path, [ & ]( std::string_view key, std::string_view rest ) {
         return value( entity, attribute.element( *entity, key ), rest );
      } );
   }

   StoreVisits & visits_;
};

} // namespace

std::optional< StorePlace > placeAt( Orrery::EntityManager const & entityManager,
                                     std::string_view path, StoreVisits & visits ) {
   while ( path.starts_with( '/' ) ) {
      path.remove_prefix( 1 );
   }
   while ( path.ends_with( '/' ) ) {
      path.remove_suffix( 1 );
   }
   Search search( visits );
   auto const mounted = eachSplit( path, [ & ]( std::string_view prefix, std::string_view rest ) {
      auto const entity = entityManager.mounted( prefix );
      return entity ? search.below( Ptr< Entity const >( entity.get() ), rest ) : std::nullopt;
   } );
   return mounted ? mounted
                  : search.below( Ptr< Entity const >( entityManager.root().get() ), path );
}

} // namespace Valend
