// The keyed collections of entities and reactors.
//
//   Members< M, &M::key >   members under a key that they carry themselves; owns one handle each
//   Map< K, V >             plain values or handles under an outside key
//   Set< K >                keys alone
//
// Look-up and insertion take constant time on average; a key brings its own hash. A walk (range-for
// over the collection) visits in order of insertion and survives anything: see WalkList.h. What a
// walk yields is pinned or copied, so the loop body may delete it. None of these notifies; the
// fields of entities do (CollectionFields.h).
#pragma once

#include "platform/quill/Pool.h"
#include "platform/quill/Ptr.h"
#include "platform/quill/WalkList.h"

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace Quill {

// Spreads an identity over all bits. No two identities have the same result.
constexpr U64 mixed( U64 identity ) noexcept {
   auto const spread = identity * 0x9e3779b97f4a7c15u;
   return spread ^ ( spread >> 32 );
}

// A key's hash. Numbers, handles and interned names are hashed by what they are, without touching
// what they refer to.
template < class K > U64 hashOf( K const & key ) noexcept {
   if constexpr ( std::is_integral_v< K > || std::is_enum_v< K > ) {
      return mixed( static_cast< U64 >( key ) );
   } else if constexpr ( requires { key.identity(); } ) {
      return mixed( reinterpret_cast< U64 >( key.identity() ) );
   } else if constexpr ( requires { key.get(); } ) {
      return mixed( reinterpret_cast< U64 >( key.get() ) );
   } else {
      return key.hash();
   }
}

// Whether keys of equal hashes are equal, so that the keys themselves need not be compared.
template < class K > inline constexpr bool hashIdentifies = !requires( K const & key ) {
   key.hash();
}
|| requires( K const & key ) {
   key.identity();
};

// The table under all three collections: elements of type E (derived from WalkHook) found by a key
// that KeyOf reads from the element. Owns nothing but its index; a small table has none and is
// searched in order.
//
// The index is one array. An element is at the place that its key's hash selects, or at one of the
// next (linear probing). The hash is beside the address, so that neither a search nor the growth of
// the index touches an element, each of which is somewhere else in memory.
template < class E, class K, class KeyOf > class HashTable {
 public:
   HashTable() = default;
   HashTable( HashTable const & ) = delete;
   HashTable & operator=( HashTable const & ) = delete;

   U32 count() const noexcept { return count_; }
   WalkList const & order() const noexcept { return order_; }
   E * first() const noexcept { return static_cast< E * >( order_.head() ); }

   E * find( K const & key ) const noexcept {
      if ( index_ ) {
         U64 const hash = hashOf( key );
         for ( auto place = home( hash ); index_[ place ].element; place = after( place ) ) {
            if ( isOf( index_[ place ], hash, key ) ) {
               return index_[ place ].element;
            }
         }
         return nullptr;
      }
      for ( auto * hook = order_.head(); hook; hook = WalkList::after( *hook ) ) {
         auto * const element = static_cast< E * >( hook );
         if ( KeyOf()( *element ) == key ) {
            return element;
         }
      }
      return nullptr;
   }

   // Requires that the table has no element of the same key.
   void insert( E & element ) {
      if ( count_ >= capacity() ) {
         grow();
      }
      order_.append( element );
      ++count_;
      if ( index_ ) {
         put( { hashOf< K >( KeyOf()( element ) ), &element } );
      }
   }

   // Requires that the element's key is still the same.
   void remove( E & element ) noexcept {
      if ( index_ ) {
         auto place = home( hashOf< K >( KeyOf()( element ) ) );
         while ( index_[ place ].element != &element ) {
            place = after( place );
         }
         close( place );
      }
      order_.remove( element );
      --count_;
   }

   // Takes all elements out at once, without a search for each, and passes them to `destroy` in order of
   // insertion.
   template < class Destroy > void clear( Destroy const & destroy ) noexcept {
      index_.reset();
      count_ = 0;
      for ( auto * hook = order_.release(); hook; ) {
         auto & element = static_cast< E & >( *hook );
         hook = WalkList::after( *hook );
         destroy( element );
      }
   }

 private:
   struct Slot {
      U64 hash;
      E * element; // null: empty
   };
   static constexpr U32 smallCount = 8;

   U32 capacity() const noexcept { return index_ ? ( mask_ + 1 ) / 4 * 3 : smallCount; }
   U32 home( U64 hash ) const noexcept { return static_cast< U32 >( hash ) & mask_; }
   U32 after( U32 place ) const noexcept { return ( place + 1 ) & mask_; }

   static bool isOf( Slot const & slot, U64 hash, K const & key ) noexcept {
      if constexpr ( hashIdentifies< K > ) {
         return slot.hash == hash;
      } else {
         return slot.hash == hash && KeyOf()( *slot.element ) == key;
      }
   }

   void put( Slot const & slot ) noexcept {
      auto place = home( slot.hash );
      while ( index_[ place ].element ) {
         place = after( place );
      }
      index_[ place ] = slot;
   }

   // Empties the place. Of what follows without a gap, an element moves into it that a search would
   // not find behind it.
   void close( U32 gap ) noexcept {
      for ( auto place = after( gap ); index_[ place ].element; place = after( place ) ) {
         auto const fromHome = ( place - home( index_[ place ].hash ) ) & mask_;
         if ( fromHome >= ( ( place - gap ) & mask_ ) ) {
            index_[ gap ] = index_[ place ];
            gap = place;
         }
      }
      index_[ gap ].element = nullptr;
   }

   void grow() {
      U32 const size = index_ ? ( mask_ + 1 ) * 2 : smallCount * 2;
      auto const old = std::exchange( index_, std::make_unique< Slot[] >( size ) );
      auto const oldMask = std::exchange( mask_, size - 1 );
      if ( !old ) {
         for ( auto * hook = order_.head(); hook; hook = WalkList::after( *hook ) ) {
            auto * const element = static_cast< E * >( hook );
            put( { hashOf< K >( KeyOf()( *element ) ), element } );
         }
         return;
      }
      for ( U32 place = 0; place <= oldMask; ++place ) {
         if ( old[ place ].element ) {
            put( old[ place ] );
         }
      }
   }

   WalkList order_;
   std::unique_ptr< Slot[] > index_; // a power of two; at most three quarters are in use
   U32 mask_ = 0;
   U32 count_ = 0;
};

// The walk of a range-for. `Pin` makes what the loop body gets from the element, and keeps it safe
// while the body runs. Neither copied nor moved: the collection knows its address.
template < class E, class Pin > class WalkIterator {
 public:
   using value_type = Pin;

   explicit WalkIterator( WalkList const & list ) : walk_( list ) { advance(); }

   Pin const & operator*() const noexcept { return *pinned_; }
   Pin const * operator->() const noexcept { return &*pinned_; }
   WalkIterator & operator++() {
      advance();
      return *this;
   }
   bool operator==( std::nullptr_t ) const noexcept { return !pinned_.has_value(); }

 private:
   void advance() {
      pinned_.reset(); // may destroy what was visited, which may change the list: before next()
      if ( auto * const hook = walk_.next() ) {
         pinned_.emplace( *static_cast< E * >( hook ) );
      }
   }

   Walk walk_;
   std::optional< Pin > pinned_;
};

// Base of everything that a Members collection can hold.
class Member : public PtrInterface, public WalkHook {
 protected:
   Member() = default;
};

template < class M, auto key > class Members {
 public:
   using Key = std::remove_cvref_t< decltype( ( std::declval< M const & >().*key )() ) >;

   Members() = default;
   ~Members() { table_.clear( leave ); }

   Ptr< M > find( Key const & k ) const noexcept { return Ptr< M >( table_.find( k ) ); }
   bool has( Key const & k ) const noexcept { return table_.find( k ) != nullptr; }
   U32 count() const noexcept { return table_.count(); }

   // Requires that there is no member of the same key.
   void insert( Ptr< M > member ) {
      table_.insert( *member );
      member.release();
   }
   // Removes the member and returns the collection's handle to it; null if the key is absent.
   Ptr< M > remove( Key const & k ) noexcept {
      auto * const member = table_.find( k );
      if ( !member ) {
         return nullptr;
      }
      table_.remove( *member );
      return Ptr< M >::adopt( member );
   }
   // One after the other: until its turn, each is still found.
   void clear() noexcept {
      while ( auto * const member = table_.first() ) {
         table_.remove( *member );
         leave( *member );
      }
   }

   struct Pin : Ptr< M > {
      explicit Pin( M & member ) : Ptr< M >( &member ) {}
   };
   WalkIterator< M, Pin > begin() const { return WalkIterator< M, Pin >( table_.order() ); }
   std::nullptr_t end() const noexcept { return nullptr; }

 private:
   struct KeyOf {
      // By reference where the accessor gives one: a look-up counts no references.
      decltype( auto ) operator()( M const & member ) const noexcept { return ( member.*key )(); }
   };

   // Gives up the handle. An entity that still has other handles is left without a parent.
   static void leave( M & member ) noexcept {
      if constexpr ( requires { member.parentIs( nullptr ); } ) {
         member.parentIs( nullptr );
      }
      Ptr< M >::adopt( &member );
   }

   HashTable< M, Key, KeyOf > table_;
};

template < class K, class V > class Map {
 public:
   Map() = default;
   ~Map() { clear(); }

   // The value under `key`; null if the key is absent. Valid until the map changes.
   V const * find( K const & key ) const noexcept {
      auto * const entry = table_.find( key );
      return entry ? &entry->value : nullptr;
   }
   bool has( K const & key ) const noexcept { return table_.find( key ) != nullptr; }
   U32 count() const noexcept { return table_.count(); }

   // Returns whether this changed the map.
   bool set( K const & key, V value ) {
      if ( auto * const entry = table_.find( key ) ) {
         if ( entry->value == value ) {
            return false;
         }
         entry->value = std::move( value );
         return true;
      }
      table_.insert( *std::make_unique< Entry >( key, std::move( value ) ).release() );
      return true;
   }
   bool remove( K const & key ) noexcept {
      auto * const entry = table_.find( key );
      if ( !entry ) {
         return false;
      }
      table_.remove( *entry );
      delete entry;
      return true;
   }
   void clear() noexcept {
      table_.clear( []( Entry & entry ) { delete &entry; } );
   }

   struct Entry : WalkHook, Pooled {
      Entry( K k, V v ) : key( std::move( k ) ), value( std::move( v ) ) {}
      K key;
      V value;
   };
   struct Pin {
      explicit Pin( Entry const & entry ) : key( entry.key ), value( entry.value ) {}
      K key;
      V value;
   };
   WalkIterator< Entry, Pin > begin() const { return WalkIterator< Entry, Pin >( table_.order() ); }
   std::nullptr_t end() const noexcept { return nullptr; }

 private:
   struct KeyOf {
      K const & operator()( Entry const & entry ) const noexcept { return entry.key; }
   };
   HashTable< Entry, K, KeyOf > table_;
};

template < class K > class Set {
 public:
   Set() = default;
   ~Set() { clear(); }

   bool has( K const & key ) const noexcept { return table_.find( key ) != nullptr; }
   U32 count() const noexcept { return table_.count(); }

   // Both return whether this changed the set.
   bool insert( K const & key ) {
      if ( has( key ) ) {
         return false;
      }
      table_.insert( *std::make_unique< Entry >( key ).release() );
      return true;
   }
   bool remove( K const & key ) noexcept {
      auto * const entry = table_.find( key );
      if ( !entry ) {
         return false;
      }
      table_.remove( *entry );
      delete entry;
      return true;
   }
   void clear() noexcept {
      table_.clear( []( Entry & entry ) { delete &entry; } );
   }

   struct Entry : WalkHook, Pooled {
      explicit Entry( K k ) : key( std::move( k ) ) {}
      K key;
   };
   struct Pin : K {
      explicit Pin( Entry const & entry ) : K( entry.key ) {}
   };
   WalkIterator< Entry, Pin > begin() const { return WalkIterator< Entry, Pin >( table_.order() ); }
   std::nullptr_t end() const noexcept { return nullptr; }

 private:
   struct KeyOf {
      K const & operator()( Entry const & entry ) const noexcept { return entry.key; }
   };
   HashTable< Entry, K, KeyOf > table_;
};

} // namespace Quill
