#include "platform/quill/Dir.h"

#include "platform/quill/EntityTables.h"

namespace Quill {

Dir::~Dir() {
   for ( auto const & entry : entry_ ) {
      if ( entry.value ) {
         entry.value->parentIs( nullptr );
      }
   }
}

void Dir::entryIs( Name name ) {
   if ( !entry_.has( name ) ) {
      entry_.set( name, nullptr );
      notify( entryAttr::id, &name );
   }
}

void Dir::entryIs( Name name, Ptr< Entity > entity ) {
   auto const old = entry( name );
   if ( entity ) {
      entity->parentIs( this );
   }
   if ( !entry_.set( name, entity ) ) {
      return;
   }
   if ( old ) {
      old->parentIs( nullptr );
   }
   notify( entryAttr::id, &name );
}

void Dir::entryDel( Name name ) {
   auto const old = entry( name );
   if ( !entry_.remove( name ) ) {
      return;
   }
   if ( old ) {
      old->parentIs( nullptr );
   }
   notify( entryAttr::id, &name );
}

void Dir::entryDelAll() {
   for ( auto const & entry : entry_ ) {
      entryDel( entry.key );
   }
}

} // namespace Quill

QUILL_ENTITY_TABLES( Quill::Dir )
