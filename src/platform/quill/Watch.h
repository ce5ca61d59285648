// Quill::Watch: a reactor's nested notifiee on one entity, which names in one place the attributes
// it reacts to and the handler that each calls:
//
//   Quill::Watch< ConfigSm, AllIntf,
//                 Quill::On< AllIntf::intfMessageAttr, &ConfigSm::handleIntfMessage > > allIntf_;
//
// A handler of a collection takes the key of the change, by value; a change that carries no key
// does not call it. Other handlers take nothing.
#pragma once

#include "platform/quill/Fault.h"
#include "platform/quill/Reactor.h"

#include <type_traits>

namespace Quill {

// Calls `handler` (a member function of the owner) when the attribute of tag `Attr` changes.
template < class Attr, auto handler > struct On {
   using Attribute = Attr;
   static constexpr AttrId id = Attr::id;

   template < class Owner > static void call( Owner & owner, void const * key ) {
      if constexpr ( std::is_void_v< typename Attr::Key > ) {
         ( owner.*handler )();
      } else if ( key ) {
         ( owner.*handler )( *static_cast< typename Attr::Key const * >( key ) );
      }
   }
};

template < class Owner, class T, class... Ons > class Watch final : public NotifieeOf< T > {
 public:
   // Watches `entity` for `owner`, whose member this is; null watches nothing.
   Watch( Owner & owner, Ptr< T > entity ) noexcept : owner_( owner ) {
      this->notifierIs( std::move( entity ) );
   }

   // The watched entity.
   T * get() const noexcept { return this->notifier(); }
   Ptr< T > handle() const noexcept { return Ptr< T >( get() ); }

   // It is as silent as its reactor.
   bool hasNotificationActive() const noexcept {
      return NotifieeBase::hasNotificationActive() && owner_.hasNotificationActive();
   }
   bool isZombie() const noexcept { return NotifieeBase::isZombie() || owner_.isZombie(); }

   void onAttribute( AttrId attributeId, void const * key ) override {
      // A change that the reactor does not handle must not cost a scope.
      if ( ( ( attributeId != Ons::id ) && ... ) || owner_.isSilent() ) {
         return;
      }
      Reactor::HandlerScope const scope( owner_ );
      try {
         (void)( ( attributeId == Ons::id && ( Ons::call( owner_, key ), true ) ) || ... );
      } catch ( ... ) {
         fault( attributeId, key );
      }
   }

 private:
   // Reports the exception being handled. The handler may have replaced the watched entity; the type is
   // still the same.
   void fault( AttrId attributeId, void const * key ) {
      auto const keyText =
         key ? T::staticType().attribute( attributeId )->keyText( key ) : std::string();
      auto const report = [ & ]< class Attr >( std::type_identity< Attr > ) {
         reportFault( faultSource< Owner, Attr >( owner_.reactorName() ), keyText );
         return true;
      };
      (void)( ( attributeId == Ons::id &&
                report( std::type_identity< typename Ons::Attribute >() ) ) ||
              ... );
   }

   Owner & owner_;
};

} // namespace Quill
