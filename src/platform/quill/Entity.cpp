#include "platform/quill/Entity.h"

#include "platform/quill/Fault.h"

namespace Quill {

template <> void Ptr< Entity const >::inc() const noexcept {
   if ( object_ ) {
      object_->refInc();
   }
}

template <> void Ptr< Entity const >::dec() const noexcept {
   if ( object_ ) {
      object_->refDec();
   }
}

void NotifieeBase::watch( Ptr< Entity const > entity ) noexcept {
   if ( watched_ ) {
      watched_->notifiees_.remove( *this );
   }
   if ( entity ) {
      entity->notifiees_.append( *this );
   }
   // Last, because it may destroy the old entity.
   watched_ = std::move( entity );
}

// Forced inline: one more call per watcher would cost as much as the handler's own.
[[gnu::always_inline]] inline void Entity::tellOne( NotifieeBase & notifiee, AttrId attributeId,
                                                    void const * key ) {
   if ( notifiee.silence_ ) {
      return;
   }
   try {
      notifiee.onAttribute( attributeId, key );
   } catch ( ... ) {
      // Reactors catch their own faults and name themselves (Watch.h). This one is of a bare
      // notifiee, which may be destroyed by now.
      reportFault( { typeid( NotifieeBase ), "notifiee" }, "" );
   }
}

void Entity::tell( NotifieeBase & notifiee, AttrId attributeId, void const * key ) {
   tellOne( notifiee, attributeId, key );
}

// Aligned to a cache line: at another place the same loop takes up to a fifth longer.
[[gnu::aligned( 64 )]] void Entity::tellAll( AttrId attributeId, void const * key ) const {
   // The last watcher to leave may destroy the entity, so nothing here touches a member once the
   // walk has begun. The walk itself notices when its list is destroyed.
   Walk walk( notifiees_ );
   walk.each( [ = ]( WalkHook & hook ) {
      tellOne( static_cast< NotifieeBase & >( hook ), attributeId, key );
   } );
}

} // namespace Quill
