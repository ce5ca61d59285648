#include "platform/quill/Allocation.h"

#include "platform/quill/Pool.h"

#include <algorithm>
#include <cstring>

namespace Quill {

namespace {

AllocationType * allTypes = nullptr;

} // namespace

void * allocate( AllocationType & type, std::size_t size ) {
   void * const memory = poolAllocate( size );
   if ( type.total == 0 ) {
      type.next = allTypes;
      allTypes = &type;
   }
   ++type.live;
   ++type.total;
   type.liveBytes += size;
   return memory;
}

void deallocate( AllocationType & type, void * memory, std::size_t size ) noexcept {
   --type.live;
   type.liveBytes -= size;
   poolDeallocate( memory, size );
}

std::vector< AllocationType const * > allocationTypes() {
   std::vector< AllocationType const * > types;
   for ( auto const * type = allTypes; type; type = type->next ) {
      types.push_back( type );
   }
   std::sort( types.begin(), types.end(), []( auto const * a, auto const * b ) {
      return std::strcmp( a->name, b->name ) < 0;
   } );
   return types;
}

U64 liveObjects() {
   U64 live = 0;
   for ( auto const * type = allTypes; type; type = type->next ) {
      live += type->live;
   }
   return live;
}

} // namespace Quill
