// Interface::NetNsIntfStatusManager: the devices of one network namespace, by interface.
#pragma once

#include "devices/ByDeviceName.h"
#include "platform/corvid/IntfId.h"
#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/InterfaceTypes.h"
#include "types/KernelNetInfo.h"

namespace Interface {

class NetNsIntfStatusManagerRoot;

// Fills a device directory from the kernel's devices of one namespace: from those that carry Ethernet
// frames, since frames are sent as they are. The root decides which interface a device carries. Of several devices of one name, the one seen last under it is used.
//   watches   the namespace's devices and their names
//   writes    the device directory, as the only writer
//   owned by  NetNsIntfStatusManagerRoot
class NetNsIntfStatusManager final : public Quill::Reactor {
   QUILL_TRACKED( Interface::NetNsIntfStatusManager )
 public:
   // Keeps all. `root` outlives it. A null `kernelNetInfoStatus` means no devices.
   NetNsIntfStatusManager( NetNsIntfStatusManagerRoot & root,
                           Quill::Ptr< DeviceIntfStatusDir > deviceIntfStatusDir,
                           Quill::Ptr< KernelNetInfo::Status const > kernelNetInfoStatus,
                           Corvid::NamespaceName namespaceName );
   ~NetNsIntfStatusManager() override;

   char const * reactorName() const noexcept override { return "NetNsIntfStatusManager"; }

   Quill::Ptr< DeviceIntfStatusDir > const & deviceIntfStatusDir() const noexcept {
      return deviceIntfStatusDir_;
   }
   Quill::Ptr< KernelNetInfo::Status const > kernelNetInfoStatus() const noexcept {
      return kernelNetInfoStatus_.handle();
   }
   Corvid::NamespaceName const & namespaceName() const noexcept { return namespaceName_; }

   void handleInitialized();
   void handleInterface( U32 ifIndex );
   // Drops all devices and empties the directory. A handler that is still on the stack finds
   // nothing left to do.
   void handleDestruction();

   // Updates the entries of all interfaces that could be on a device of that name.
   void deviceNameRefresh( Quill::Name const & deviceName );

 private:
   // Watches the name of one device.
   class DeviceSm final : public Quill::Reactor {
      QUILL_TRACKED( Interface::NetNsIntfStatusManager::DeviceSm )
    public:
      DeviceSm( NetNsIntfStatusManager & manager,
                Quill::Ptr< KernelNetInfo::Interface const > device );
      char const * reactorName() const noexcept override { return "DeviceSm"; }
      U32 ifIndex() const noexcept { return device_.get()->ifIndex(); }
      KernelNetInfo::Interface const * device() const noexcept { return device_.get(); }
      Quill::Name const & deviceName() const noexcept { return deviceName_; }
      void handleDeviceName();

    private:
      NetNsIntfStatusManager & manager_;
      Quill::Name deviceName_; // the name under which the manager has it
      Quill::Watch<
         DeviceSm, KernelNetInfo::Interface const,
         Quill::On< KernelNetInfo::Interface::deviceNameAttr, &DeviceSm::handleDeviceName > >
         device_;
   };

   void intfRefresh( Corvid::IntfId const & intfId );
   // An empty name means no device.
   void deviceMoved( U32 ifIndex, Quill::Name from, Quill::Name to );

   NetNsIntfStatusManagerRoot & root_;
   Quill::Ptr< DeviceIntfStatusDir > const deviceIntfStatusDir_;
   Quill::Watch<
      NetNsIntfStatusManager, KernelNetInfo::Status const,
      Quill::On< KernelNetInfo::Status::interfaceAttr, &NetNsIntfStatusManager::handleInterface > >
      kernelNetInfoStatus_;
   Corvid::NamespaceName const namespaceName_;
   Quill::Children< DeviceSm, &DeviceSm::ifIndex > deviceSm_;
   // The indexes of the devices of each name, in the order in which they were seen under it.
   ByDeviceName< U32 > ifIndexes_;
};

} // namespace Interface
