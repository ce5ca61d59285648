#include "platform/orrery/EntityManager.h"

namespace Orrery {

EntityManager::EntityManager() : root_( Quill::make< Quill::Dir >() ) {}

EntityManager::~EntityManager() = default;

void EntityManager::mountProviderIs( std::string prefix, MountProvider * provider ) {
   if ( provider ) {
      providers_[ std::move( prefix ) ] = provider;
   } else {
      providers_.erase( prefix );
   }
}

void EntityManager::mount( std::string_view path ) {
   if ( mounts_.find( path ) != mounts_.end() ) {
      return;
   }
   auto * const source = provider( path );
   mounts_.emplace( path, source ? source->mount( path ) : nullptr );
}

void EntityManager::unmount( std::string_view path ) {
   auto const mount = mounts_.find( path );
   if ( mount == mounts_.end() ) {
      return;
   }
   mounts_.erase( mount );
   if ( auto * const source = provider( path ) ) {
      source->unmount( path );
   }
}

Quill::Ptr< Quill::Entity > EntityManager::mounted( std::string_view path ) const {
   auto const mount = mounts_.find( path );
   return mount == mounts_.end() ? nullptr : mount->second;
}

MountProvider * EntityManager::provider( std::string_view path ) const {
   for ( auto const & [ prefix, provider ] : providers_ ) {
      if ( path.starts_with( prefix ) ) {
         return provider;
      }
   }
   return nullptr;
}

} // namespace Orrery
