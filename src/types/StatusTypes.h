// Valen::Status: what the library publishes.
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/quill/Attributes.h"

namespace Valen::Status {

// One per interface whose shutdown may be delayed.
class IntfStatus final : public Quill::Entity {
   QUILL_ENTITY( Valen::Status::IntfStatus )
 public:
   explicit IntfStatus( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( bool, delayed )     // a shutdown is being held: frames sent, timer running
   QUILL_SINGLE( bool, shouldDelay ) // a shutdown would be delayed
};

class StatusDir final : public Quill::Entity {
   QUILL_ENTITY( Valen::Status::StatusDir )
   QUILL_SINGLE( bool, agentActive ) // the feature runs
   QUILL_MEMBERS( IntfStatus, intfStatus, intfId )
};

} // namespace Valen::Status
