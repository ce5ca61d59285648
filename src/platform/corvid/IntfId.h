// Corvid::IntfId: an interface identifier, such as "Ethernet1" or "Ethernet3/1".
#pragma once

#include "platform/quill/String.h"

namespace Corvid {

class IntfId : public Quill::NameOf< IntfId > {
 public:
   constexpr IntfId() noexcept = default;
   IntfId( std::string_view text ) : NameOf( text ) {}                        // NOLINT
   IntfId( char const * text ) : IntfId( std::string_view( text ) ) {}        // NOLINT
   IntfId( std::string const & text ) : IntfId( std::string_view( text ) ) {} // NOLINT
   IntfId( Quill::String const & text ) : NameOf( text ) {}                   // NOLINT
};

} // namespace Corvid
