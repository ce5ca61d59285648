// The fields (Field.h) that hold collections. Keys are passed by reference; the caller keeps them
// until the call returns.
#pragma once

#include "platform/quill/Field.h"
#include "platform/quill/LinkQueue.h"
#include "platform/quill/Reinstantiation.h"

#include <type_traits>

namespace Quill {

// Entities that the owner is the parent of, each under the key that it carries.
template < class M, auto keyOf > class MembersField : private Field {
 public:
   using Contents = Members< M, keyOf >;
   using Type = M;
   using Key = typename Contents::Key;
   static constexpr AttrKind kind = AttrKind::members;

   Contents const & get() const noexcept { return members_; }
   Ptr< M > find( Key const & key ) const noexcept { return members_.find( key ); }
   bool has( Key const & key ) const noexcept { return members_.has( key ); }
   U32 count() const noexcept { return members_.count(); }

   // Returns the member under `key`, made from it and `parameters` if it does not exist yet. Throws
   // NameInUseException if it exists and was made from other parameters.
   template < class... P >
   Ptr< M > instantiate( Entity const & owner, AttrId attribute, Key const & key,
                         P &&... parameters ) {
      if ( auto const existing = find( key ) ) {
         requireSameParameters( *existing, parameters... );
         return existing;
      }
      auto const member = make< M >( key, std::forward< P >( parameters )... );
      insert( owner, attribute, key, member );
      return member;
   }

   // Requires that there is no member under `key`, which is the key of `member`.
   void insert( Entity const & owner, AttrId attribute, Key const & key, Ptr< M > member ) {
      member->parentIs( &owner );
      members_.insert( std::move( member ) );
      notify( owner, attribute, &key );
   }

   void remove( Entity const & owner, AttrId attribute, Key const & key ) {
      if ( auto const member = members_.remove( key ) ) {
         member->parentIs( nullptr );
         notify( owner, attribute, &key );
      }
   }

   void removeAll( Entity const & owner, AttrId attribute ) {
      for ( auto const & member : members_ ) {
         remove( owner, attribute, ( *member.*keyOf )() );
      }
   }

 private:
   Contents members_;
};

template < class V > bool isNullHandle( V const & value ) noexcept {
   if constexpr ( requires { typename V::Target; } ) {
      return !value;
   } else {
      return false;
   }
}

// Values under keys that they do not carry themselves.
template < class K, class V > class MapField : private Field {
 public:
   using Contents = Map< K, V >;
   using Type = V;
   using Key = K;
   static constexpr AttrKind kind = AttrKind::map;

   Contents const & get() const noexcept { return map_; }
   // The value under `key`; an empty one if the key is absent.
   V find( K const & key ) const {
      auto const * const value = map_.find( key );
      return value ? *value : V();
   }
   bool has( K const & key ) const noexcept { return map_.has( key ); }
   U32 count() const noexcept { return map_.count(); }

   // A null handle removes the entry.
   void set( Entity const & owner, AttrId attribute, K const & key, V && value ) {
      bool const changed =
         isNullHandle( value ) ? map_.remove( key ) : map_.set( key, std::move( value ) );
      if ( changed ) {
         notify( owner, attribute, &key );
      }
   }

   void remove( Entity const & owner, AttrId attribute, K const & key ) {
      if ( map_.remove( key ) ) {
         notify( owner, attribute, &key );
      }
   }

   void removeAll( Entity const & owner, AttrId attribute ) {
      for ( auto const & entry : map_ ) {
         remove( owner, attribute, entry.key );
      }
   }

 private:
   Contents map_;
};

// Keys alone.
template < class K > class SetField : private Field {
 public:
   using Contents = Set< K >;
   using Type = K;
   using Key = K;
   static constexpr AttrKind kind = AttrKind::set;

   Contents const & get() const noexcept { return set_; }
   bool has( K const & key ) const noexcept { return set_.has( key ); }
   U32 count() const noexcept { return set_.count(); }

   void insert( Entity const & owner, AttrId attribute, K const & key ) {
      if ( set_.insert( key ) ) {
         notify( owner, attribute, &key );
      }
   }

   void remove( Entity const & owner, AttrId attribute, K const & key ) {
      if ( set_.remove( key ) ) {
         notify( owner, attribute, &key );
      }
   }

   void removeAll( Entity const & owner, AttrId attribute ) {
      for ( auto const & key : set_ ) {
         remove( owner, attribute, key );
      }
   }

 private:
   Contents set_;
};

// Values by position.
template < class T > class QueueField : private Field {
 public:
   using Contents = LinkQueue< T >;
   using Type = T;
   using Key = U32;
   static constexpr AttrKind kind = AttrKind::queue;

   Contents const & get() const noexcept { return queue_; }
   // The value at `position`, counted from the head; an empty one past the end.
   T at( U32 position ) const {
      auto const * const value = queue_.at( position );
      return value ? *value : T();
   }
   U32 count() const noexcept { return queue_.count(); }

   // Appends at the tail; the key of the notification is the new position.
   void append( Entity const & owner, AttrId attribute, T && value ) {
      U32 const position = queue_.count();
      queue_.append( std::move( value ) );
      notify( owner, attribute, &position );
   }

   // Notifies once, without a key.
   void removeAll( Entity const & owner, AttrId attribute ) {
      if ( !queue_.empty() ) {
         queue_.clear();
         notify( owner, attribute );
      }
   }

 private:
   Contents queue_;
};

} // namespace Quill
