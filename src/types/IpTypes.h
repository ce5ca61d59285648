// Ip: the local status of VRFs.
#pragma once

#include "platform/corvid/NamespaceName.h"
#include "types/L3Types.h"

namespace Ip {

// Only `active` counts: the VRF is up and its namespace can be opened.
enum class VrfState : U32 {
   initializing = 0,
   active = 1,
   deleting = 2,
};

// The local status of one VRF.
class VrfStatusLocal final : public Quill::Entity {
   QUILL_ENTITY( Ip::VrfStatusLocal )
 public:
   explicit VrfStatusLocal( L3::VrfName vrfName ) : vrfName_( std::move( vrfName ) ) {}
   QUILL_PARAMETER( L3::VrfName, vrfName )
   QUILL_SINGLE( VrfState, state )
   QUILL_SINGLE( Corvid::NamespaceName, networkNamespace )
};

class AllVrfStatusLocal final : public Quill::Entity {
   QUILL_ENTITY( Ip::AllVrfStatusLocal )
   QUILL_MEMBERS( VrfStatusLocal, vrf, vrfName )
};

} // namespace Ip
