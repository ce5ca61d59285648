#include "platform/quill/Entity.h"

#include "platform/quill/Fault.h"

namespace Quill {

void NotifieeBase::watch( Ptr< Entity const > entity ) noexcept {
   if ( watched_ ) {
      watched_->notifiees_.remove( *this );
   }
   if ( entity ) {
      entity->notifiees_.append( *this );
   }
   // Last: letting go of the old entity may destroy it.
   watched_ = std::move( entity );
}

// Inline by force: a call more would cost a further watcher as much as the handler's own.
[[gnu::always_inline]] inline void Entity::tellOne( NotifieeBase & notifiee, AttrId attributeId,
                                                    void const * key ) {
   if ( notifiee.silence_ ) {
      return;
   }
   try {
      notifiee.onAttribute( attributeId, key );
   } catch ( ... ) {
      // Reactors contain their own faults and name themselves (Watch.h); here ends a bare
      // notifiee's, which may be gone by now.
      reportFault( { typeid( NotifieeBase ), "notifiee" }, "" );
   }
}

void Entity::tell( NotifieeBase & notifiee, AttrId attributeId, void const * key ) {
   tellOne( notifiee, attributeId, key );
}

void Entity::tellAll( AttrId attributeId, void const * key ) const {
   // The last watcher to leave may take the entity along, so nothing here touches a member once
   // the walk has begun; the walk itself knows when its list dies.
   Walk walk( notifiees_ );
   walk.each( [ = ]( WalkHook & hook ) {
      tellOne( static_cast< NotifieeBase & >( hook ), attributeId, key );
   } );
}

} // namespace Quill
