// The library's own model of interfaces and VRFs. Never published.
//
// The writers, not the types, keep these rules:
//   - an Intf exists only while an IntfMessage of the same id does;
//   - a Vrf is made only together with the VrfL3Intf that it holds;
//   - the set of a VrfL3Intf holds only Intf members of the same AllIntf.
// A member that has left its collection exists as long as it has a handle.
#pragma once

#include "types/ConfigTypes.h"
#include "types/InterfaceTypes.h"
#include "types/IpTypes.h"
#include "types/L3Types.h"
#include "types/StatusTypes.h"

namespace Valen {

// The value of Intf::device that means no device.
Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName const & defaultDevice();

// The frames of all agents for one interface, by the agent's name.
class IntfMessage final : public Quill::Entity {
   QUILL_ENTITY( Valen::IntfMessage )
 public:
   explicit IntfMessage( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_MAP( Quill::String, Quill::Ptr< Config::Agent::Message const >, message )
};

// An interface that has frames.
class Intf final : public Quill::Entity {
   QUILL_ENTITY( Valen::Intf )
 public:
   Intf( Corvid::IntfId intfId, Quill::Ptr< IntfMessage const > intfMessage )
       : intfId_( std::move( intfId ) ), intfMessage_( std::move( intfMessage ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_PARAMETER( Quill::Ptr< IntfMessage const >, intfMessage )
   QUILL_SINGLE( Quill::Ptr< L3::Intf::Status const >, l3IntfStatus )
   QUILL_SINGLE( Quill::Ptr< Interface::IntfConfig const >,
                 intfConfig )                                   // when it supports the delay
   QUILL_SINGLE( Quill::Ptr< Status::IntfStatus >, intfStatus ) // while it is ready
   QUILL_SINGLE( Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName, device )
};

class AllIntf final : public Quill::Entity {
   QUILL_ENTITY( Valen::AllIntf )
   QUILL_MEMBERS( Intf, intf, intfId )
   QUILL_MEMBERS( IntfMessage, intfMessage, intfId )
};

// The interfaces of one VRF.
class VrfL3Intf final : public Quill::Entity {
   QUILL_ENTITY( Valen::VrfL3Intf )
 public:
   explicit VrfL3Intf( L3::VrfName vrfName ) : vrfName_( std::move( vrfName ) ) {}
   QUILL_PARAMETER( L3::VrfName, vrfName )
   QUILL_SET( Quill::Ptr< Intf >, intf )
};

// A VRF that is up, with its namespace.
class Vrf final : public Quill::Entity {
   QUILL_ENTITY( Valen::Vrf )
 public:
   Vrf( L3::VrfName vrfName, Corvid::NamespaceName nsName, Quill::Ptr< VrfL3Intf const > vrfL3Intf )
       : vrfName_( std::move( vrfName ) ), nsName_( std::move( nsName ) ),
         vrfL3Intf_( std::move( vrfL3Intf ) ) {}
   QUILL_PARAMETER( L3::VrfName, vrfName )
   QUILL_PARAMETER( Corvid::NamespaceName, nsName )
   QUILL_PARAMETER( Quill::Ptr< VrfL3Intf const >, vrfL3Intf )
};

class AllVrf final : public Quill::Entity {
   QUILL_ENTITY( Valen::AllVrf )
   QUILL_MEMBERS( Vrf, vrf, vrfName )
   QUILL_MEMBERS( VrfL3Intf, vrfL3Intf, vrfName )
};

// The roots of the model, which the process makes and passes to runnabilitySmFactory.
Quill::Ptr< AllIntf > allIntfFactory();
Quill::Ptr< AllVrf > allVrfFactory();

} // namespace Valen
