// Valen::IntfIoSm: the shutdown delay of one interface.
#pragma once

#include "platform/corvid/RawTxPam.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

#include <optional>

namespace Valen {

// Carries out the shutdown delay: sends the interface's frames, holds `delayed` for the configured
// time, and clears it.
//   watches   the interface's IntfConfig; its own timer task
//   writes    delayed and shouldDelay of the interface's IntfStatus, nothing else
//   owned by  IntfSm, which makes it only for a ready interface
// Between two handlers, from handleInitialized() to handleDestruction():
//   (1) shouldDelay is true;
//   (2) delayed is true exactly while the timer is armed.
class IntfIoSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::IntfIoSm )
 public:
   using Ptr = Quill::Ptr< IntfIoSm >;

   // Keeps all; none null.
   IntfIoSm( Quill::Ptr< Intf > intf, Quill::Ptr< Corvid::RawTxPam > rawTxPam,
             Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
             Quill::Ptr< Interface::IntfConfig const > intfConfig,
             Quill::Ptr< Config::ConfigDir const > configDir );
   ~IntfIoSm() override;

   static Ptr IntfIoSmIs( Quill::Ptr< Intf > intf, Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                          Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                          Quill::Ptr< Interface::IntfConfig const > intfConfig,
                          Quill::Ptr< Config::ConfigDir const > configDir );

   char const * reactorName() const noexcept override { return "IntfIoSm"; }

   Quill::Ptr< Intf > const & intf() const noexcept { return intf_; }
   Quill::Ptr< Corvid::RawTxPam > const & rawTxPam() const noexcept { return rawTxPam_; }
   Quill::Ptr< Gantry::TaskScheduler > const & taskScheduler() const noexcept {
      return taskScheduler_;
   }
   Quill::Ptr< Config::ConfigDir const > const & configDir() const noexcept { return configDir_; }

   Quill::Ptr< Interface::IntfConfig const > intfConfig() const noexcept {
      return intfConfig_.handle();
   }
   // Watches `intfConfig` from now on. If it is another one and not null, runs its handler once.
   void intfConfigIs( Quill::Ptr< Interface::IntfConfig const > intfConfig );
   void intfConfigDel() { intfConfigIs( nullptr ); }

   // The timer of the delay; null before handleInitialized().
   Quill::Ptr< Gantry::TimerTask > shutdownDelayTask() const noexcept {
      return shutdownDelayTask_.handle();
   }
   void shutdownDelayTaskIs( Quill::Ptr< Gantry::TaskScheduler > scheduler,
                             Gantry::TaskPriority priority, Quill::String name );
   void shutdownDelayTaskDel() { shutdownDelayTask_.notifierIs( nullptr ); }

   // Counters since creation; they vanish with the reactor.
   U32 messagesOutputCount() const noexcept { return messagesOutputCount_; } // packets sent
   void messagesOutputCountIs( U32 count ) noexcept { messagesOutputCount_ = count; }
   void messagesOutputCountInc( U32 by ) noexcept { messagesOutputCount_ += by; }
   U32 sendPktFailedCount() const noexcept { return sendPktFailedCount_; } // packets lost
   void sendPktFailedCountIs( U32 count ) noexcept { sendPktFailedCount_ = count; }
   void sendPktFailedCountInc( U32 by ) noexcept { sendPktFailedCount_ += by; }
   U32 abortCount() const noexcept { return abortCount_; } // delays aborted by enabling
   void abortCountIs( U32 count ) noexcept { abortCount_ = count; }
   void abortCountInc( U32 by ) noexcept { abortCount_ += by; }
   U32 immediateEnableCount() const noexcept {
      return immediateEnableCount_;
   } // enabled outside a delay
   void immediateEnableCountIs( U32 count ) noexcept { immediateEnableCount_ = count; }
   void immediateEnableCountInc( U32 by ) noexcept { immediateEnableCount_ += by; }

   // Read from the interface's record at each call; empty, null or 0 if absent.
   Corvid::IntfId intfId() const;
   U32 ifIndex() const noexcept; // the kernel's index of the device
   Quill::Ptr< IntfMessage const > intfMessage() const noexcept;
   Quill::Ptr< Status::IntfStatus > intfStatus() const noexcept;
   double shutdownDelay() const noexcept; // seconds
   Quill::String shutdownDelayTaskName() const;

   void handleInitialized();
   void handleAdminShutdownDelayed();
   void handleShutdownDelayTaskRun();
   void handleDestruction();

   // Sends every queued frame of every agent, without pacing. Returns how many the endpoint
   // accepted; one that it rejects is counted and not retried.
   U32 outputMessages();

 private:
   using Device = Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName;

   // Announces the interface's device to the endpoint if `announced` is another one.
   bool sendMessage( Quill::String const & text, std::optional< Device > & announced );

   Quill::Ptr< Intf > const intf_;
   Quill::Ptr< Corvid::RawTxPam > const rawTxPam_;
   Quill::Ptr< Gantry::TaskScheduler > const taskScheduler_;
   Quill::Watch< IntfIoSm, Interface::IntfConfig const,
                 Quill::On< Interface::IntfConfig::adminShutdownDelayedAttr,
                            &IntfIoSm::handleAdminShutdownDelayed > >
      intfConfig_;
   Quill::Ptr< Config::ConfigDir const > const configDir_;
   Quill::Watch<
      IntfIoSm, Gantry::TimerTask,
      Quill::On< Gantry::TimerTask::taskRunAttr, &IntfIoSm::handleShutdownDelayTaskRun > >
      shutdownDelayTask_;
   // The entry whose flags this reactor set. If its own removal is deferred, the record may have
   // the entry of a successor by the time of handleDestruction().
   Quill::Ptr< Status::IntfStatus > raisedStatus_;
   U32 messagesOutputCount_ = 0;
   U32 sendPktFailedCount_ = 0;
   U32 abortCount_ = 0;
   U32 immediateEnableCount_ = 0;
};

Quill::Ptr< IntfIoSm > intfIoSmFactory( Quill::Ptr< Intf > intf,
                                        Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                        Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                        Quill::Ptr< Interface::IntfConfig const > intfConfig,
                                        Quill::Ptr< Config::ConfigDir const > configDir );

} // namespace Valen
