// Interface::NetNsIntfStatusManagerRoot: which interface a kernel device carries.
#pragma once

#include "devices/NetNsIntfStatusManager.h"

namespace Interface {

// A device carries the interface whose IntfStatus names it; otherwise the interface that has the
// device's own name, unless that one is configured to another device. An interface whose
// IntfStatusLocal names another namespace is never chosen. If several interfaces remain, one that
// names this namespace takes precedence, then the one configured first.
//   watches   the interfaces' IntfStatus and IntfStatusLocal
//   writes    nothing itself
//   owns      one NetNsIntfStatusManager per namespace
//   owned by  KernelIntf
class NetNsIntfStatusManagerRoot final : public Quill::Reactor {
   QUILL_TRACKED( Interface::NetNsIntfStatusManagerRoot )
 public:
   using Ptr = Quill::Ptr< NetNsIntfStatusManagerRoot >;

   // Keeps both directories; either may be null.
   //   filterByNetNs   whether an IntfStatusLocal keeps its interface out of other namespaces
   NetNsIntfStatusManagerRoot( Quill::Ptr< AllIntfStatusDir const > allIntfStatusDir,
                               Quill::Ptr< AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                               bool filterByNetNs );
   ~NetNsIntfStatusManagerRoot() override;

   static Ptr
   NetNsIntfStatusManagerRootIs( Quill::Ptr< AllIntfStatusDir const > allIntfStatusDir,
                                 Quill::Ptr< AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                                 bool filterByNetNs );

   char const * reactorName() const noexcept override { return "NetNsIntfStatusManagerRoot"; }

   Quill::Ptr< AllIntfStatusDir const > allIntfStatusDir() const noexcept {
      return allIntfStatusDir_.handle();
   }
   Quill::Ptr< AllIntfStatusLocalDir const > allIntfStatusLocalDir() const noexcept {
      return allIntfStatusLocalDir_.handle();
   }
   bool filterByNetNs() const noexcept { return filterByNetNs_; }

   // Fills `deviceIntfStatusDir` from `kernelNetInfoStatus` (null: no devices) from now on.
   // Replaces a manager of that namespace that was made from other values.
   Quill::Ptr< NetNsIntfStatusManager >
   intfStatusManagerIs( Quill::Ptr< DeviceIntfStatusDir > deviceIntfStatusDir,
                        Quill::Ptr< KernelNetInfo::Status const > kernelNetInfoStatus,
                        Corvid::NamespaceName namespaceName );
   Quill::Ptr< NetNsIntfStatusManager >
   intfStatusManager( Corvid::NamespaceName const & namespaceName ) const noexcept {
      return intfStatusManager_.find( namespaceName );
   }
   U32 intfStatusManagers() const noexcept { return intfStatusManager_.count(); }
   // Empties the manager's directory and removes it; no effect on an unknown namespace.
   void intfStatusManagerDel( Corvid::NamespaceName namespaceName );
   void intfStatusManagerDelAll();

   // The name of the device that the interface is on: the configured one, otherwise its own.
   Quill::Name deviceName( Corvid::IntfId const & intfId ) const;
   // The interface on the device of that name in that namespace; empty if it carries no interface.
   Corvid::IntfId intfId( Quill::Name const & deviceName,
                          Corvid::NamespaceName const & namespaceName ) const;
   // The interfaces that are configured to a device of that name, in any namespace.
   ByDeviceName< Corvid::IntfId >::Values intfIds( Quill::Name const & deviceName ) const {
      return intfIds_.get( deviceName );
   }
   Quill::Ptr< IntfStatus const > intfStatus( Corvid::IntfId const & intfId ) const noexcept;

   void handleInitialized();
   // The status or the local status of the interface was added, removed or changed.
   void handleIntf( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   enum class Place : U8 { elsewhere, anywhere, here };

   // Watches the attributes of one interface that determine its device.
   class IntfSm final : public Quill::Reactor {
      QUILL_TRACKED( Interface::NetNsIntfStatusManagerRoot::IntfSm )
    public:
      IntfSm( NetNsIntfStatusManagerRoot & root, Corvid::IntfId intfId );
      char const * reactorName() const noexcept override { return "IntfSm"; }
      Corvid::IntfId const & intfId() const noexcept { return intfId_; }
      // The configured name of the interface's device; empty if it is not configured.
      Quill::Name const & deviceName() const noexcept { return deviceName_; }
      void deviceNameIs( Quill::Name deviceName ) noexcept {
         deviceName_ = std::move( deviceName );
      }
      void watch( Quill::Ptr< IntfStatus const > status,
                  Quill::Ptr< IntfStatusLocal const > local ) noexcept;
      void handleChange();

    private:
      NetNsIntfStatusManagerRoot & root_;
      Corvid::IntfId const intfId_;
      Quill::Name deviceName_;
      Quill::Watch< IntfSm, IntfStatus const,
                    Quill::On< IntfStatus::deviceNameAttr, &IntfSm::handleChange > >
         status_;
      Quill::Watch< IntfSm, IntfStatusLocal const,
                    Quill::On< IntfStatusLocal::netNsNameAttr, &IntfSm::handleChange > >
         local_;
   };

   Quill::Ptr< IntfStatusLocal const >
   intfStatusLocal( Corvid::IntfId const & intfId ) const noexcept;
   Place place( Corvid::IntfId const & intfId, Corvid::NamespaceName const & namespaceName ) const;
   // The configured name; empty if the interface is not configured to a device.
   Quill::Name configuredName( Corvid::IntfId const & intfId ) const noexcept;
   void intfSmUpdate( Corvid::IntfId const & intfId );

   Quill::Watch<
      NetNsIntfStatusManagerRoot, AllIntfStatusDir const,
      Quill::On< AllIntfStatusDir::intfStatusAttr, &NetNsIntfStatusManagerRoot::handleIntf > >
      allIntfStatusDir_;
   Quill::Watch< NetNsIntfStatusManagerRoot, AllIntfStatusLocalDir const,
                 Quill::On< AllIntfStatusLocalDir::intfStatusLocalAttr,
                            &NetNsIntfStatusManagerRoot::handleIntf > >
      allIntfStatusLocalDir_;
   bool const filterByNetNs_;
   ByDeviceName< Corvid::IntfId > intfIds_; // by the configured name
   Quill::Children< IntfSm, &IntfSm::intfId > intfSm_;
   Quill::Children< NetNsIntfStatusManager, &NetNsIntfStatusManager::namespaceName >
      intfStatusManager_;
};

} // namespace Interface
