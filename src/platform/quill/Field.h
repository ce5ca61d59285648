// What entities hold their attributes in: a field keeps the value of one attribute and carries out
// its changes. This header has what all fields share and the fields of single values;
// CollectionFields.h has the collections.
//
// An operation that changes a field takes the entity and the attribute's id, which would cost memory
// in every field. It changes the state first and notifies last: a watcher may write to the entity
// again or release it, so nothing after notify() touches the field. A write that changes nothing
// does not notify.
#pragma once

#include "platform/quill/Entity.h"

#include <utility>

namespace Quill {

// Every field names what it holds (Contents), the type of its values (Type), that of the keys that
// its notifications carry (Key, void if they carry none), and its kind.
class Field {
 protected:
   Field() = default;
   ~Field() = default;

   // `key` points to the key of what changed in a collection, of the attribute's key type.
   static void notify( Entity const & owner, AttrId attribute, void const * key = nullptr ) {
      owner.notify( attribute, key );
   }
};

// A constructor parameter: set once, never changed.
template < class T > class ParameterField : private Field {
 public:
   using Contents = T;
   using Type = T;
   using Key = void;
   static constexpr AttrKind kind = AttrKind::parameter;

   explicit ParameterField( T value ) : value_( std::move( value ) ) {}

   T const & get() const noexcept { return value_; }

 private:
   T const value_;
};

// One value that can be set.
template < class T > class SingleField : private Field {
 public:
   using Contents = T;
   using Type = T;
   using Key = void;
   static constexpr AttrKind kind = AttrKind::single;

   T const & get() const noexcept { return value_; }

   // Leaves the old value in `value`, so that it outlives the notification.
   void set( Entity const & owner, AttrId attribute, T && value ) {
      if ( value == value_ ) {
         return;
      }
      std::swap( value_, value );
      notify( owner, attribute );
   }

 private:
   T value_{};
};

} // namespace Quill
