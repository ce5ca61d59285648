#include "platform/quill/String.h"

#include "platform/quill/Allocation.h"
#include "platform/quill/Assert.h"
#include "platform/quill/Exception.h"
#include "platform/quill/Pool.h"

#include <cstring>
#include <new>
#include <unordered_set>

namespace Quill {

namespace {

AllocationType stringAllocation{ "Quill::String" };

struct RepHash {
   using is_transparent = void;
   std::size_t operator()( std::string_view bytes ) const noexcept;
   std::size_t operator()( StringRep const * rep ) const noexcept { return rep->hash; }
};

struct RepEqual {
   using is_transparent = void;
   bool operator()( StringRep const * a, StringRep const * b ) const noexcept { return a == b; }
   bool operator()( std::string_view a, StringRep const * b ) const noexcept {
      return a == b->view();
   }
   bool operator()( StringRep const * a, std::string_view b ) const noexcept {
      return a->view() == b;
   }
};

using NameTable =
   std::unordered_set< StringRep const *, RepHash, RepEqual, PoolAllocator< StringRep const * > >;

// Never destroyed: names with static storage may outlive every other static object.
NameTable & nameTable() {
   static auto & table = *new NameTable;
   return table;
}

// FNV-1a over the bytes with a final mix, so that the low bits, which choose the bucket, depend on
// all of them. Never 0, which says "not computed".
U64 hashBytes( std::string_view bytes ) noexcept {
   U64 hash = 0xcbf29ce484222325u;
   for ( char const byte : bytes ) {
      hash = ( hash ^ static_cast< U8 >( byte ) ) * 0x100000001b3u;
   }
   hash ^= hash >> 32;
   hash *= 0x9e3779b97f4a7c15u;
   hash ^= hash >> 29;
   return hash ? hash : 1;
}

std::size_t RepHash::operator()( std::string_view bytes ) const noexcept {
   return hashBytes( bytes );
}

} // namespace

StringRep const * StringHandle::newRep( std::string_view a, std::string_view b ) {
   auto const length = a.size() + b.size();
   if ( length == 0 ) {
      return nullptr;
   }
   constexpr auto maxLength = ~0u >> 1;
   VALEN_ASSERT( length <= maxLength );
   void * const memory = allocate( stringAllocation, sizeof( StringRep ) + length );
   auto * const rep = new ( memory ) StringRep{ 1, static_cast< U32 >( length ) & maxLength, 0, 0 };
   auto * const bytes = reinterpret_cast< char * >( rep + 1 );
   if ( !a.empty() ) {
      std::memcpy( bytes, a.data(), a.size() );
   }
   if ( !b.empty() ) {
      std::memcpy( bytes + a.size(), b.data(), b.size() );
   }
   return rep;
}

StringRep const * StringHandle::internedRep( std::string_view bytes ) {
   if ( bytes.empty() ) {
      return nullptr;
   }
   auto & table = nameTable();
   if ( auto const found = table.find( bytes ); found != table.end() ) {
      ++( *found )->refs;
      return *found;
   }
   auto * const rep = const_cast< StringRep * >( newRep( bytes, {} ) );
   rep->hash = hashBytes( bytes );
   rep->interned = 1;
   table.insert( rep );
   return rep;
}

StringRep const * StringHandle::internedRep( StringHandle const & bytes ) {
   if ( bytes.rep_ && bytes.rep_->interned ) {
      ++bytes.rep_->refs;
      return bytes.rep_;
   }
   return internedRep( bytes.view() );
}

U64 StringHandle::hashOf( std::string_view bytes ) noexcept {
   return hashBytes( bytes );
}

void StringHandle::dispose( StringRep const * rep ) noexcept {
   if ( rep->interned ) {
      nameTable().erase( rep );
   }
   deallocate( stringAllocation, const_cast< StringRep * >( rep ),
               sizeof( StringRep ) + rep->length );
}

U64 String::hash() const noexcept {
   if ( !rep_ ) {
      return 0;
   }
   if ( !rep_->hash ) {
      rep_->hash = hashOf( rep_->view() );
   }
   return rep_->hash;
}

String Interned::stringValue() const noexcept {
   if ( rep_ ) {
      ++rep_->refs;
   }
   return String( rep_ );
}

std::string_view requireLength( std::string_view bytes, std::size_t maxLength, char const * text ) {
   if ( bytes.size() > maxLength ) {
      throw RangeException( text );
   }
   return bytes;
}

} // namespace Quill
