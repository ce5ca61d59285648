// Interface::DeviceNameIndex: which interfaces are configured to be on a device of a given name,
// and the reverse. Both take constant time; a name has one interface, rarely more (if the same name
// is in two namespaces).
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/quill/Collections.h"
#include "platform/quill/Pool.h"

#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Interface {

struct NameHash {
   std::size_t operator()( Quill::Name const & name ) const noexcept { return name.hash(); }
};

// What belongs to a device name: one value, rarely more.
template < class T > using NamesValues = std::vector< T, Quill::PoolAllocator< T > >;
template < class T >
using ByDeviceName =
   std::unordered_map< Quill::Name, NamesValues< T >, NameHash, std::equal_to<>,
                       Quill::PoolAllocator< std::pair< Quill::Name const, NamesValues< T > > > >;

class DeviceNameIndex {
 public:
   using IntfIds = NamesValues< Corvid::IntfId >;

   // The configured device name of the interface; empty if it is not configured.
   Quill::Name deviceName( Corvid::IntfId const & intfId ) const {
      auto const * const name = deviceName_.find( intfId );
      return name ? *name : Quill::Name();
   }

   // The interfaces with that configured name, in the order in which they got it. By value, because
   // the caller's loop may change the index.
   IntfIds intfIds( Quill::Name const & deviceName ) const {
      auto const found = intfIds_.find( deviceName );
      return found == intfIds_.end() ? IntfIds() : found->second;
   }

   // Configures the name; an empty one removes the interface.
   void deviceNameIs( Corvid::IntfId const & intfId, Quill::Name const & deviceName ) {
      auto const old = this->deviceName( intfId );
      if ( deviceName == old ) {
         return;
      }
      if ( !old.empty() ) {
         deviceName_.remove( intfId );
         remove( intfId, old );
      }
      if ( !deviceName.empty() ) {
         deviceName_.set( intfId, deviceName );
         intfIds_[ deviceName ].push_back( intfId );
      }
   }

 private:
   void remove( Corvid::IntfId const & intfId, Quill::Name const & deviceName ) {
      auto const found = intfIds_.find( deviceName );
      std::erase( found->second, intfId );
      if ( found->second.empty() ) {
         intfIds_.erase( found );
      }
   }

   Quill::Map< Corvid::IntfId, Quill::Name > deviceName_;
   ByDeviceName< Corvid::IntfId > intfIds_;
};

} // namespace Interface
