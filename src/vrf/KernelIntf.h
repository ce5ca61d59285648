// Valen::KernelIntf: per VRF, the kernel devices of its network namespace.
#pragma once

#include "devices/NetNsIntfStatusManagerRoot.h"
#include "platform/orrery/EntityManager.h"
#include "platform/quill/Children.h"
#include "types/L3Types.h"

namespace Valen {

// Mounts the kernel information of a VRF's namespace and lists its devices in a directory of the
// VRF. Not a reactor.
//   owns      the NetNsIntfStatusManagerRoot; the device directories
//   owned by  ConfigSm, which removes a VRF only after all watchers of its directory
class KernelIntf final : public Quill::PtrInterface {
   QUILL_TRACKED( Valen::KernelIntf )
 public:
   KernelIntf( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
               Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
               Quill::Ptr< Orrery::EntityManager > entityManager );
   ~KernelIntf() override;

   Quill::Ptr< Interface::AllIntfStatusDir const > const & allIntfStatusDir() const noexcept {
      return allIntfStatusDir_;
   }
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const &
   allIntfStatusLocalDir() const noexcept {
      return allIntfStatusLocalDir_;
   }
   Quill::Ptr< Orrery::EntityManager > const & entityManager() const noexcept {
      return entityManager_;
   }
   Quill::Ptr< Interface::VrfDeviceIntfStatusDir > const & vrfDeviceIntfStatusDir() const noexcept {
      return vrfDeviceIntfStatusDir_;
   }
   Quill::Ptr< Interface::NetNsIntfStatusManagerRoot > const &
   intfStatusManagerRoot() const noexcept {
      return intfStatusManagerRoot_.get();
   }

   static constexpr auto quillParameters() {
      return std::tuple(
         Quill::Parameter( "_allIntfStatusDir", &KernelIntf::allIntfStatusDir ),
         Quill::Parameter( "_allIntfStatusLocalDir", &KernelIntf::allIntfStatusLocalDir ),
         Quill::Parameter( "_entityManager", &KernelIntf::entityManager ) );
   }

   // The namespace of a VRF that was added; empty for any other.
   Corvid::NamespaceName namespaceName( L3::VrfName const & vrfName ) const;
   U32 namespaceNames() const noexcept { return namespaceName_.count(); }
   void namespaceNameIs( L3::VrfName vrfName, Corvid::NamespaceName namespaceName );
   void namespaceNameDel( L3::VrfName vrfName ) { namespaceName_.remove( vrfName ); }
   void namespaceNameDelAll() { namespaceName_.clear(); }

   // Where the kernel information of a namespace is mounted: "kni/ns/NAME/status".
   static Quill::String mountPath( Corvid::NamespaceName const & namespaceName );

   // Adds the VRF and returns the directory that lists the devices of its namespace. The directory
   // stays empty if nothing, or an entity of another type, is published at the mount path. A VRF that
   // was added with another namespace leaves that one first.
   Interface::DeviceIntfStatusDir::Ptr vrfIs( L3::VrfName vrfName,
                                              Corvid::NamespaceName namespaceName );
   // Undoes vrfIs, in reverse order. Changes nothing for a VRF that was never added.
   void vrfDel( L3::VrfName vrfName );

   void handleDestruction();

 private:
   void intfStatusManagerRootIs(
      Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
      Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
      bool filterByNetNs );
   void leaveNamespace( L3::VrfName const & vrfName );
   void unmount( Corvid::NamespaceName const & namespaceName );

   Quill::Ptr< Interface::AllIntfStatusDir const > const allIntfStatusDir_;
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const allIntfStatusLocalDir_;
   Quill::Ptr< Orrery::EntityManager > const entityManager_;
   Quill::Map< L3::VrfName, Corvid::NamespaceName > namespaceName_;
   Quill::Ptr< Interface::VrfDeviceIntfStatusDir > vrfDeviceIntfStatusDir_;
   Quill::Child< Interface::NetNsIntfStatusManagerRoot > intfStatusManagerRoot_;
};

Quill::Ptr< KernelIntf >
kernelIntfFactory( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                   Quill::Ptr< Orrery::EntityManager > entityManager );

} // namespace Valen
