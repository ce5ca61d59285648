// A bare watcher that calls a function at each change of an entity: to record the order of writes,
// or to act in the middle of one.
#pragma once

#include "platform/quill/Entity.h"

#include <functional>

namespace Valen::Test {

template < class T > class OnChange final : public Quill::NotifieeOf< T const > {
 public:
   using Function = std::function< void() >;

   OnChange( Quill::Ptr< T const > entity, Quill::AttrId attributeId, Function function )
       : attributeId_( attributeId ), function_( std::move( function ) ) {
      this->notifierIs( std::move( entity ) );
   }

   void onAttribute( Quill::AttrId attributeId, void const * ) override {
      if ( attributeId == attributeId_ ) {
         function_();
      }
   }

 private:
   Quill::AttrId const attributeId_;
   Function const function_;
};

// onChange< Intf::deviceAttr >( intf, [ & ] { ... } ), kept in a variable as long as it watches.
template < class Attr, class E >
auto onChange( Quill::Ptr< E > const & entity, std::function< void() > function ) {
   using Owner = typename Attr::Owner;
   return OnChange< Owner >( Quill::Ptr< Owner const >( entity ), Attr::id, std::move( function ) );
}

} // namespace Valen::Test
