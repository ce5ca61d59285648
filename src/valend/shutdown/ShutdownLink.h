// The link of one shutdown while valend changes it, in the phases settingDown and settingUp: it is set down, however
// long the kernel takes and however often it refuses, and up again when the operator has enabled it meanwhile.
//
// A change is requested from the port, and no timer runs until its answer. What it means is in the table of
// Shutdown.h, "answer" and "enabled".
#pragma once

#include "platform/gantry/Backoff.h"
#include "valend/shutdown/Enabled.h"
#include "valend/shutdown/ObserverList.h"
#include "valend/shutdown/ShutdownState.h"

#include <memory>

namespace Valend {

class ShutdownLink {
 public:
   // How long to wait for a device that is missing: one that was just recreated may not have been reported
   // yet. And how long to try to set a link up again.
   static constexpr std::chrono::milliseconds downTimeout{ 300 };
   // After how long those who wait are told that the kernel does not set the link down.
   static constexpr std::chrono::milliseconds retryNotice{ 1000 };

   // How the shutdown ends; nothing while it does not.
   struct Outcome {
      ShutdownRecord::Ending ending;
      std::string why;
   };
   using MaybeOutcome = std::optional< Outcome >;

   // Both must outlive this. `answered` is called from the loop with each answer, and passes it to take().
   ShutdownLink( ShutdownState & state, ObserverList & observers,
                 std::function< void( LinkAnswer const & ) > answered );

   // Requests that the link be set down, or up. Requires that no answer is awaited.
   //   missing   how long a missing device is waited for
   void setDown( std::chrono::milliseconds missing );
   void setUp();
   MaybeOutcome take( LinkAnswer const & answer );

   // The operator enables the link: a change that has not begun is withdrawn.
   MaybeOutcome enable();
   // Those who enabled it are answered so, when the shutdown has ended.
   EnableResult enableResult() const;

   // Whether the answer to a request is awaited.
   bool requested() const noexcept { return request_ != nullptr; }
   // Drops the request unless the kernel has begun with it. Whether none is left.
   bool withdraw();
   // Whether the kernel is changing the link at this moment.
   bool changing() const { return request_ && request_->begun(); }
   // Why the kernel does not set the link down, while that is tried again; else empty.
   std::string const & whyRetrying() const noexcept { return whyRetrying_; }
   // It was set down outside valend while it was held.
   void noteSetDownOutside();
   // The shutdown ends: nothing more is requested or reported.
   void end();

 private:
   void request( LinkChange change );
   MaybeOutcome downAnswered( LinkAnswer const & answer );
   MaybeOutcome upAnswered( LinkAnswer const & answer );
   MaybeOutcome retry( LinkAnswer const & answer );
   void tellRetrying();
   void noteDown( LinkAnswer const & answer );
   MaybeOutcome abortUnlessDown();
   bool isDown() const;

   ShutdownState & state_;
   ObserverList & observers_;
   std::function< void( LinkAnswer const & ) > const answered_;
   std::unique_ptr< LinkRequest > request_; // whose answer is awaited
   LinkChange requested_ = LinkChange::down;
   std::string setDownOutside_; // when: "120 ms into the delay"
   std::string whyRetrying_;
   std::optional< Gantry::Time > retryingSince_;
   unsigned attempts_ = 0; // to set the link down
   Gantry::Backoff pause_;
   std::optional< Condition > condition_; // while it is retried for long
   std::optional< LinkAnswer > notUp_;    // settingUp failed so
   bool setUpAgain_ = false;
};

} // namespace Valend
