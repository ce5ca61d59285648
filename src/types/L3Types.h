// L3: VRF names and the status of layer-3 interfaces.
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/quill/Attributes.h"

namespace L3 {

// The name of a VRF. At most 100 bytes; a longer one throws Quill::RangeException.
class VrfName : public Quill::NameOf< VrfName > {
 public:
   static constexpr std::size_t maxLength = 100;

   constexpr VrfName() noexcept = default;
   VrfName( std::string_view text ) // NOLINT
       : NameOf( Quill::requireLength( text, maxLength,
                                       "VrfName::bytes > VrfName::maxLength not allowed" ) ) {}
   VrfName( char const * text ) : VrfName( std::string_view( text ) ) {}        // NOLINT
   VrfName( std::string const & text ) : VrfName( std::string_view( text ) ) {} // NOLINT
   VrfName( Quill::String const & text ) : VrfName( text.view() ) {}            // NOLINT
};

namespace Intf {

// The layer-3 status of one interface.
class Status final : public Quill::Entity {
   QUILL_ENTITY( L3::Intf::Status )
 public:
   explicit Status( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( L3::VrfName, vrf ) // the VRF that the interface is in
};

class StatusDir final : public Quill::Entity {
   QUILL_ENTITY( L3::Intf::StatusDir )
   QUILL_MEMBERS( Status, intfStatus, intfId )
};

} // namespace Intf
} // namespace L3
