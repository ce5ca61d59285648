#include "platform/gantry/Timer.h"

#include "platform/quill/Fault.h"

namespace Gantry {

class Timer::Notifiee final : public Quill::NotifieeOf< TimerTask > {
 public:
   Notifiee( Quill::Ptr< TaskScheduler > scheduler, std::string const & name, Work work )
       : work_( std::make_shared< Work const >( std::move( work ) ) ) {
      notifierIs( Quill::make< TimerTask >( std::move( scheduler ), TaskPriority::process,
                                            Quill::String( name ) ) );
   }

   void onAttribute( Quill::AttrId attributeId, void const * /* key */ ) override {
      if ( attributeId != TimerTask::taskRunAttr::id ) {
         return;
      }
      auto const work = work_; // the work may destroy the timer
      auto const name = notifier()->name();
      Quill::underFaultBoundary(
         { typeid( Timer ), "Timer" }, [ & ] { return name.stdString(); }, *work );
   }

 private:
   std::shared_ptr< Work const > const work_;
};

Timer::Timer( Quill::Ptr< TaskScheduler > scheduler, std::string const & name, Work work )
    : notifiee_( std::make_unique< Notifiee >( std::move( scheduler ), name, std::move( work ) ) ) {
}

Timer::~Timer() {
   stop();
}

void Timer::start( Time delay ) {
   notifiee_->notifier()->scheduleTaskDelay( std::chrono::duration< double >( delay ).count() );
}

void Timer::stop() noexcept {
   notifiee_->notifier()->unscheduleTask();
}

bool Timer::running() const noexcept {
   return notifiee_->notifier()->taskScheduled();
}

} // namespace Gantry
