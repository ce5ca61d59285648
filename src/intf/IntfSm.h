// Valen::IntfSm: whether the shutdown delay applies to one interface.
#pragma once

#include "platform/corvid/RawTxPam.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

class IntfIoSm;

// While the interface is ready, it has a status entry, which announces that its shutdowns are
// managed by the library, and an IntfIoSm, which manages them. Ready: the record has a
// configuration that supports the delay, and a kernel device.
//   watches   intfConfig and device of the interface's record
//   writes    the interface's entry in the status directory; intfStatus of the record
//   owns      the IntfIoSm
//   owned by  VrfContainerSm, while the interface is in the VRF
// Between two handlers there is an entry, linked from the record, exactly while there is an
// IntfIoSm.
class IntfSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::IntfSm )
 public:
   using Ptr = Quill::Ptr< IntfSm >;

   // Keeps all; none null. Requires global configuration, a record with messages and an L3 status,
   // and no status entry under `intfId`.
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
   // Watches `intf` from now on. If it is another record and not null, runs both handlers once.
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
   // Retires the old one, whose handleDestruction() runs before this returns unless one of its own
   // handlers is on the stack.
   void intfIoSmIs( Quill::Ptr< IntfIoSm > intfIoSm );

   void handleInitialized();
   void handleIntfConfig();
   void handleDevice();
   void handleDestruction();

   // Makes the entry and the IntfIoSm if the interface is ready and does not have them. Removes
   // nothing but an IntfIoSm of another configuration than the record's.
   void maybeCreateIntfStatus();
   // Removes the IntfIoSm, the link and the entry, in that order, if there is an entry.
   void maybeDeleteIntfStatus();

 private:
   // The record's; null and the default device if there is no record.
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
};

Quill::Ptr< IntfSm > intfSmFactory( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                    Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                    Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                    Quill::Ptr< Config::ConfigDir const > configDir,
                                    Quill::Ptr< Status::StatusDir > statusDir );

} // namespace Valen
