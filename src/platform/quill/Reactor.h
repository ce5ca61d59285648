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

class Reactor : public Member {
 public:
   bool hasNotificationActive() const noexcept { return active_; }
   // Switches delivery to the nested notifiees on or off, without unregistering them. They read the
   // switch at each change.
   virtual void hasNotificationActiveIs( bool active ) { active_ = active; }
   bool isZombie() const noexcept { return zombie_; }
   // Silences the nested notifiees for good while the reactor waits to be destroyed.
   void quillDoZombieReactors( bool flag ) noexcept { zombie_ = flag; }
   // Whether the nested notifiees call no handler.
   bool isSilent() const noexcept { return !active_ || zombie_; }

   // Whether it handles changes; each reactor says when, at the latest in handleInitialized().
   bool initialized() const noexcept { return initialized_; }
   void initializedIs( bool initialized ) noexcept { initialized_ = initialized; }

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
   U32 handlerDepth_ = 0;
   bool active_ = true;
   bool zombie_ = false;
   bool initialized_ = false;
};

} // namespace Quill
