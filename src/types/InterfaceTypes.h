// Interface: configuration and status of interfaces, and the devices that carry them.
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/corvid/NamespaceName.h"
#include "platform/quill/Attributes.h"

namespace Interface {

// The configuration of one interface.
class IntfConfig final : public Quill::Entity {
   QUILL_ENTITY( Interface::IntfConfig )
 public:
   explicit IntfConfig( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( bool, adminShutdownDelaySupported ) // fixed for the entity's life in the directory
   QUILL_SINGLE( bool, adminShutdownDelayable )      // the delay would apply to a shutdown now
   QUILL_SINGLE( bool, adminShutdownDelayed ) // shut down by the operator, with the delay active
};

class AllIntfConfigDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::AllIntfConfigDir )
   QUILL_MEMBERS( IntfConfig, intfConfig, intfId )
};

// The status of one interface that is the same on any machine: which kernel device carries it.
class IntfStatus final : public Quill::Entity {
   QUILL_ENTITY( Interface::IntfStatus )
 public:
   explicit IntfStatus( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( Quill::Name, deviceName ) // empty: the device has the interface's own name
};

class AllIntfStatusDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::AllIntfStatusDir )
   QUILL_MEMBERS( IntfStatus, intfStatus, intfId )
};

// The status of one interface on this machine: the namespace that its device belongs in.
class IntfStatusLocal final : public Quill::Entity {
   QUILL_ENTITY( Interface::IntfStatusLocal )
 public:
   explicit IntfStatusLocal( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( Corvid::NamespaceName, netNsName )
};

class AllIntfStatusLocalDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::AllIntfStatusLocalDir )
   QUILL_MEMBERS( IntfStatusLocal, intfStatusLocal, intfId )
};

// Per namespace: the kernel device of each interface.
class DeviceIntfStatusDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::DeviceIntfStatusDir )
 public:
   using Ptr = Quill::Ptr< DeviceIntfStatusDir >;

   // The kernel device of an interface. A default value means no device.
   struct IntfStatusAndDeviceName {
      Quill::Ptr< IntfStatus const > intfStatus; // null if the interface has no status entity
      Quill::Name deviceName;
      U32 ifIndex = 0; // the kernel's interface index, in the namespace

      bool operator==( IntfStatusAndDeviceName const & ) const noexcept = default;
      // "et1 (index 7)", "no device"
      std::string displayValue() const;
   };

   explicit DeviceIntfStatusDir( Quill::Name name ) : name_( std::move( name ) ) {}
   QUILL_PARAMETER( Quill::Name, name )
   QUILL_MAP( Corvid::IntfId, IntfStatusAndDeviceName, intfStatusAndDeviceName )
};

// The device directories of one VRF.
class DeviceVrfIntfStatusDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::DeviceVrfIntfStatusDir )
 public:
   explicit DeviceVrfIntfStatusDir( Quill::Name name ) : name_( std::move( name ) ) {}
   QUILL_PARAMETER( Quill::Name, name )
   QUILL_MEMBERS( DeviceIntfStatusDir, deviceIntfStatusDir, name )
};

// The device directories of all VRFs.
class VrfDeviceIntfStatusDir final : public Quill::Entity {
   QUILL_ENTITY( Interface::VrfDeviceIntfStatusDir )
 public:
   explicit VrfDeviceIntfStatusDir( Quill::Name name ) : name_( std::move( name ) ) {}
   QUILL_PARAMETER( Quill::Name, name )
   QUILL_MEMBERS( DeviceVrfIntfStatusDir, deviceVrfIntfStatusDir, name )
};

} // namespace Interface
