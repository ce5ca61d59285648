// Interface::DeviceNameIndex: which interfaces are configured to be on a device of a given name,
// and the reverse. Both take constant time; a name has one interface, rarely more (if the same name
// is in two namespaces).
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/quill/Collections.h"
#include "platform/quill/Pool.h"

#include <utility>
#include <vector>

namespace Interface {

// What belongs to each device name: one value, rarely more, in the order in which they were added.
template < class T > class ByDeviceName {
 public:
   using Values = std::vector< T, Quill::PoolAllocator< T > >;

   // Null if there are none. Valid until the next change.
   Values const * find( Quill::Name const & deviceName ) const noexcept {
      return values_.find( deviceName );
   }
   // By value, for a loop that may change them.
   Values get( Quill::Name const & deviceName ) const {
      auto const * const values = find( deviceName );
      return values ? *values : Values();
   }

   void add( Quill::Name const & deviceName, T const & value ) {
      auto values = get( deviceName );
      values.push_back( value );
      values_.set( deviceName, std::move( values ) );
   }
   void remove( Quill::Name const & deviceName, T const & value ) {
      auto values = get( deviceName );
      std::erase( values, value );
      if ( values.empty() ) {
         values_.remove( deviceName );
      } else {
         values_.set( deviceName, std::move( values ) );
      }
   }
   void clear() noexcept { values_.clear(); }

 private:
   Quill::Map< Quill::Name, Values > values_;
};

class DeviceNameIndex {
 public:
   using IntfIds = ByDeviceName< Corvid::IntfId >::Values;

   // The configured device name of the interface; empty if it is not configured.
   Quill::Name deviceName( Corvid::IntfId const & intfId ) const {
      auto const * const name = deviceName_.find( intfId );
      return name ? *name : Quill::Name();
   }

   // The interfaces with that configured name, in the order in which they got it. By value, because
   // the caller's loop may change the index.
   IntfIds intfIds( Quill::Name const & deviceName ) const { return intfIds_.get( deviceName ); }

   // Configures the name; an empty one removes the interface.
   void deviceNameIs( Corvid::IntfId const & intfId, Quill::Name const & deviceName ) {
      auto const old = this->deviceName( intfId );
      if ( deviceName == old ) {
         return;
      }
      if ( !old.empty() ) {
         deviceName_.remove( intfId );
         intfIds_.remove( old, intfId );
      }
      if ( !deviceName.empty() ) {
         deviceName_.set( intfId, deviceName );
         intfIds_.add( deviceName, intfId );
      }
   }

 private:
   Quill::Map< Corvid::IntfId, Quill::Name > deviceName_;
   ByDeviceName< Corvid::IntfId > intfIds_;
};

} // namespace Interface
