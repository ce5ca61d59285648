#include "platform/quill/Reactor.h"

namespace Quill {

NestedNotifiee::NestedNotifiee( Reactor & owner, NotifieeBase & notifiee ) noexcept
    : owner_( owner ), notifiee_( notifiee ), next_( std::exchange( owner.nested_, this ) ) {
   notifiee_.hasNotificationActiveIs( owner.active_ );
   notifiee_.quillDoZombieReactors( owner.zombie_ );
}

NestedNotifiee::~NestedNotifiee() {
   auto ** link = &owner_.nested_;
   while ( *link != this ) {
      link = &( *link )->next_;
   }
   *link = next_;
}

void Reactor::hasNotificationActiveIs( bool active ) {
   if ( active == active_ ) {
      return;
   }
   active_ = active;
   for ( auto * nested = nested_; nested; nested = nested->next_ ) {
      nested->notifiee_.hasNotificationActiveIs( active );
   }
}

void Reactor::quillDoZombieReactors( bool flag ) noexcept {
   if ( flag == zombie_ ) {
      return;
   }
   zombie_ = flag;
   for ( auto * nested = nested_; nested; nested = nested->next_ ) {
      nested->notifiee_.quillDoZombieReactors( flag );
   }
}

void Reactor::retire( Ptr< Reactor > reactor ) noexcept {
   if ( reactor && reactor->handlerDepth_ > 0 ) {
      reactor->quillDoZombieReactors( true );
   }
}

} // namespace Quill
