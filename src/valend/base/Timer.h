// A one-shot timer that calls a function, on any scheduler.
#pragma once

#include "platform/gantry/TaskScheduler.h"

#include <functional>

namespace Valend {

class Timer final : public Quill::NotifieeOf< Gantry::TimerTask > {
 public:
   Timer( Quill::Ptr< Gantry::TaskScheduler > scheduler, std::string const & name,
          std::function< void() > work )
       : work_( std::move( work ) ) {
      // After the library's own timers: what they let go of is seen in the same turn.
      notifierIs( Quill::make< Gantry::TimerTask >( std::move( scheduler ),
                                                    Gantry::TaskPriority( 5 ), name ) );
   }
   ~Timer() override { stop(); }
   Timer( Timer const & ) = delete;
   Timer & operator=( Timer const & ) = delete;

   // Calls the function once, `delay` from now; a timer that runs is started anew.
   void start( Gantry::Time delay ) {
      notifier()->scheduleTaskDelay( std::chrono::duration< double >( delay ).count() );
   }
   void stop() noexcept { notifier()->unscheduleTask(); }
   bool running() const noexcept { return notifier()->taskScheduled(); }

   void onAttribute( Quill::AttrId attributeId, void const * /* key */ ) override {
      if ( attributeId == Gantry::TimerTask::taskRunAttr::id ) {
         work_();
      }
   }

 private:
   std::function< void() > const work_;
};

} // namespace Valend
