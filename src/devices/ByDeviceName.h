// Interface::ByDeviceName: what belongs to each device name: the interfaces that are configured to be on
// it, or the devices that have it.
#pragma once

#include "platform/quill/Collections.h"
#include "platform/quill/Pool.h"
#include "platform/quill/String.h"

#include <vector>

namespace Interface {

// A name has one value, rarely more (if the same name is in two namespaces), in the order in which they
// were added. All takes constant time.
template < class T > class ByDeviceName {
 public:
   using Values = std::vector< T, Quill::PoolAllocator< T > >;

   // By value, for a loop that may change them.
   Values get( Quill::Name const & deviceName ) const {
      Values values;
      if ( auto const * const first = first_.find( deviceName ) ) {
         values.push_back( *first );
         if ( auto const * const further = further_.find( deviceName ) ) {
            values.insert( values.end(), further->begin(), further->end() );
         }
      }
      return values;
   }
   // The value added last; null if there are none. Valid until the next change.
   T const * last( Quill::Name const & deviceName ) const noexcept {
      auto const * const further = further_.find( deviceName );
      return further ? &further->back() : first_.find( deviceName );
   }

   void add( Quill::Name const & deviceName, T const & value ) {
      if ( !first_.has( deviceName ) ) {
         first_.set( deviceName, value );
         return;
      }
      auto const * const further = further_.find( deviceName );
      auto values = further ? *further : Values();
      values.push_back( value );
      further_.set( deviceName, std::move( values ) );
   }
   void remove( Quill::Name const & deviceName, T const & value ) {
      auto values = get( deviceName );
      std::erase( values, value );
      first_.remove( deviceName );
      further_.remove( deviceName );
      for ( auto const & left : values ) {
         add( deviceName, left );
      }
   }
   void clear() noexcept {
      first_.clear();
      further_.clear();
   }

 private:
   Quill::Map< Quill::Name, T > first_;
   Quill::Map< Quill::Name, Values > further_; // those after the first, of the names that have them
};

} // namespace Interface
