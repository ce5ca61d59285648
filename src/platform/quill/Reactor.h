// Quill::Reactor: watches entities through nested notifiees and acts in its handlers.
//
// The protocol of every reactor:
//   - The constructor stores its arguments, builds its watches and ends with handleInitialized(),
//     which sets `initialized` and handles what already exists. Handlers that run earlier trace
//     "not initialized" and do nothing else.
//   - The owner holds it in a Child or in Children (Children.h), whose handle is the only lasting
//     one.
//   - The destructor begins with handleDestruction(), then quillDoZombieReactors( true ).
//
// A reactor that is retired while one of its own handlers is on the stack is silenced at once and
// destroyed when the outermost of them returns.
#pragma once

#include "platform/quill/Entity.h"

namespace Quill {

class Reactor;

// What a reactor knows of each of its watches: enough to switch them all.
class NestedNotifiee {
 public:
   NestedNotifiee( NestedNotifiee const & ) = delete;
   NestedNotifiee & operator=( NestedNotifiee const & ) = delete;

 protected:
   NestedNotifiee( Reactor & owner, NotifieeBase & notifiee ) noexcept;
   ~NestedNotifiee();

   Reactor & owner() const noexcept { return owner_; }

 private:
   friend class Reactor;
   Reactor & owner_;
   NotifieeBase & notifiee_;
   NestedNotifiee * next_;
};

class Reactor : public Member {
 public:
   bool hasNotificationActive() const noexcept { return active_; }
   // Switches delivery to the nested notifiees on or off, without unregistering them. Does nothing
   // when the flag does not change.
   virtual void hasNotificationActiveIs( bool active );
   // Silences the nested notifiees for good while the reactor waits to be destroyed.
   void quillDoZombieReactors( bool flag ) noexcept;

   // The class's name, for the reports of faults.
   virtual char const * reactorName() const noexcept = 0;

   // Releases a removed reactor: destroys it now, or when its own handlers have returned.
   static void retire( Ptr< Reactor > reactor ) noexcept;

   // On the stack around every handler that the framework calls. Keeps the reactor alive.
   class HandlerScope {
    public:
      explicit HandlerScope( Reactor & reactor ) noexcept : pin_( &reactor ) {
         ++pin_->handlerDepth_;
      }
      ~HandlerScope() { --pin_->handlerDepth_; }
      HandlerScope( HandlerScope const & ) = delete;
      HandlerScope & operator=( HandlerScope const & ) = delete;

    private:
      Ptr< Reactor > const pin_;
   };

 protected:
   Reactor() = default;

 private:
   friend class NestedNotifiee;
   NestedNotifiee * nested_ = nullptr;
   U32 handlerDepth_ = 0;
   bool active_ = true;
   bool zombie_ = false;
};

} // namespace Quill
