// Valen::IntfSm: decides whether one interface takes part in the shutdown delay. While the
// interface is ready it has a status entry, which tells everybody that its shutdowns are managed
// here, and an IntfIoSm, which manages them.
//   watches   intfConfig and device of the interface's record
//   writes    the interface's entry in the status directory; intfStatus of the record
//   owns      the IntfIoSm
//   owned by  VrfContainerSm, while the interface is in the VRF
// Ready: the record has a configuration, that supports the delay, and a kernel device.
// Between two handlers there is an entry, linked from the record, exactly while there is an
// IntfIoSm.
#pragma once

#include "platform/corvid/RawTxPam.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

class IntfIoSm;

class IntfSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::IntfSm )
 public:
   using Ptr = Quill::Ptr< IntfSm >;

   // Requires global configuration, a record with messages and an L3 status, and no status entry
   // under `intfId`.
   IntfSm( Corvid::IntfId intfId, Quill::Ptr< Intf > intf, Quill::Ptr< Corvid::RawTxPam > rawTxPam,
           Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
           Quill::Ptr< Config::ConfigDir const > configDir,
           Quill::Ptr< Status::StatusDir > statusDir );
   ~IntfSm() override;

   static Ptr IntfSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                        Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                        Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                        Quill::Ptr< Config::ConfigDir const > configDir,
                        Quill::Ptr< Status::StatusDir > statusDir );

   char const * reactorName() const noexcept override { return "IntfSm"; }

   Corvid::IntfId const & intfId() const noexcept { return intfId_; }
   Quill::Ptr< Intf > intf() const noexcept { return intf_.handle(); }
   // Watches `intf` from now on, and runs both handlers once when it is another record than before
   // and not null.
   void intfIs( Quill::Ptr< Intf > intf );
   void intfDel() { intfIs( nullptr ); }

   Quill::Ptr< Corvid::RawTxPam > const & rawTxPam() const noexcept { return rawTxPam_; }
   Quill::Ptr< Gantry::TaskScheduler > const & taskScheduler() const noexcept {
      return taskScheduler_;
   }
   Quill::Ptr< Config::ConfigDir const > const & configDir() const noexcept { return configDir_; }
   Quill::Ptr< Status::StatusDir > const & statusDir() const noexcept { return statusDir_; }

   // Null while the interface is not ready.
   Quill::Ptr< IntfIoSm > const & intfIoSm() const noexcept { return intfIoSm_.get(); }
   // Lets go of the old one, whose handleDestruction() runs before this returns unless one of its
   // own handlers is on the stack.
   void intfIoSmIs( Quill::Ptr< IntfIoSm > intfIoSm );

   bool initialized() const noexcept { return initialized_; }
   void initializedIs( bool initialized ) noexcept { initialized_ = initialized; }

   void handleInitialized();
   void handleIntfConfig();
   void handleDevice();
   void handleDestruction();

   // Makes the entry and the IntfIoSm when the interface is ready and has none. Removes nothing,
   // but an IntfIoSm on another configuration than the record's.
   void maybeCreateIntfStatus();
   // Removes the IntfIoSm, the link and the entry, in that order, when there is an entry.
   void maybeDeleteIntfStatus();

 private:
   // The record's, or what stands for nothing when there is no record.
   Quill::Ptr< Interface::IntfConfig const > intfConfig() const noexcept;
   Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName const & device() const noexcept;
   bool isReady() const noexcept;
   void createIntfStatus();

   Corvid::IntfId const intfId_;
   Quill::Watch< IntfSm, Intf, Quill::On< Intf::intfConfigAttr, &IntfSm::handleIntfConfig >,
                 Quill::On< Intf::deviceAttr, &IntfSm::handleDevice > >
      intf_;
   Quill::Ptr< Corvid::RawTxPam > const rawTxPam_;
   Quill::Ptr< Gantry::TaskScheduler > const taskScheduler_;
   Quill::Ptr< Config::ConfigDir const > const configDir_;
   Quill::Ptr< Status::StatusDir > const statusDir_;
   Quill::Child< IntfIoSm > intfIoSm_;
   bool initialized_ = false;
};

Quill::Ptr< IntfSm > intfSmFactory( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                    Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                    Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                    Quill::Ptr< Config::ConfigDir const > configDir,
                                    Quill::Ptr< Status::StatusDir > statusDir );

} // namespace Valen
