// Quill::Entity: a typed object with attributes, a parent, and watchers that are notified of
// changes.
//
// Delivery is synchronous and depth first: a write returns after every watcher has been notified.
//   - A watcher may remove or re-point itself, another or all watchers, and release the entity
//     itself. A watcher removed before its turn is not notified; one added meanwhile is notified of
//     later changes only.
//   - Notifications nest: a handler may write to the entity that notifies it.
//   - An exception that leaves a handler does not reach the writer: the remaining watchers are
//     still notified and the fault goes to the fault sink (Fault.h).
//   - A watcher holds a handle to what it watches, so a watched entity stays alive.
// A setter therefore notifies last, and relies on nothing of the entity afterwards.
#pragma once

#include "platform/quill/Collections.h"
#include "platform/quill/Reflection.h"

namespace Quill {

class Entity;

// Receives the changes of one entity, while its notifications are active and it is not a zombie
// (its reactor has been removed and waits for its handlers to return).
class NotifieeBase : public WalkHook {
 public:
   // attributeId   which attribute of the entity changed
   // key           for a collection, points to the key (of the attribute's key type); else null
   virtual void onAttribute( AttrId attributeId, void const * key ) = 0;

   bool hasNotificationActive() const noexcept { return !( silence_ & inactive ); }
   void hasNotificationActiveIs( bool active ) noexcept { silenceIs( inactive, !active ); }
   bool isZombie() const noexcept { return silence_ & zombie; }
   void quillDoZombieReactors( bool flag ) noexcept { silenceIs( zombie, flag ); }

 protected:
   NotifieeBase() = default;
   virtual ~NotifieeBase() { watch( nullptr ); }

   Entity const * watched() const noexcept { return watched_.get(); }
   // Moves the registration to `entity`; null removes it. Does not notify.
   void watch( Ptr< Entity const > entity ) noexcept;

 private:
   friend class Entity;
   static constexpr U8 inactive = 1;
   static constexpr U8 zombie = 2;

   void silenceIs( U8 bit, bool on ) noexcept {
      silence_ = static_cast< U8 >( on ? silence_ | bit : silence_ & ~bit );
   }

   Ptr< Entity const > watched_;
   U8 silence_ = 0;
};

class Entity : public Member {
 public:
   // The entity whose collection or attribute owns this one; null for a root. Not counted: the
   // parent outlives its children or clears this.
   Entity const * parent() const noexcept { return parent_; }
   void parentIs( Entity const * parent ) noexcept { parent_ = parent; }

   virtual EntityType const & entityType() const = 0;

   bool hasNotifiees() const noexcept { return !notifiees_.empty(); }

 protected:
   Entity() = default;

   void notify( AttrId attributeId, void const * key = nullptr ) const {
      auto * const first = notifiees_.head();
      if ( !first ) {
         return;
      }
      if ( WalkList::after( *first ) ) {
         tellAll( attributeId, key );
      } else { // one watcher, the usual case, needs no walk
         tell( static_cast< NotifieeBase & >( *first ), attributeId, key );
      }
   }

 private:
   friend class NotifieeBase;
   friend class Field;

   static void tellOne( NotifieeBase & notifiee, AttrId attributeId, void const * key );
   static void tell( NotifieeBase & notifiee, AttrId attributeId, void const * key );
   void tellAll( AttrId attributeId, void const * key ) const;

   mutable WalkList notifiees_; // near the count of references: a watcher that leaves touches both
   Entity const * parent_ = nullptr;
};

// A notifiee on an entity of type T (const or not).
template < class T > class NotifieeOf : public NotifieeBase {
 public:
   T * notifier() const noexcept {
      return const_cast< T * >( static_cast< T const * >( watched() ) );
   }
   // Watches `entity` from now on; null watches nothing.
   void notifierIs( Ptr< T > entity ) noexcept { watch( std::move( entity ) ); }
};

} // namespace Quill
