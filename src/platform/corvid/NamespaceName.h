// Corvid::NamespaceName: the name of a Linux network namespace.
#pragma once

#include "platform/quill/String.h"

namespace Corvid {

// At most 150 bytes; a longer one throws Quill::RangeException.
class NamespaceName : public Quill::NameOf< NamespaceName > {
 public:
   static constexpr std::size_t maxLength = 150;

   constexpr NamespaceName() noexcept = default;
   NamespaceName( std::string_view text ) // NOLINT
       : NameOf(
            Quill::requireLength( text, maxLength, "NamespaceName::bytes > 150 not allowed" ) ) {}
   NamespaceName( char const * text ) : NamespaceName( std::string_view( text ) ) {} // NOLINT
   NamespaceName( std::string const & text )                                         // NOLINT
       : NamespaceName( std::string_view( text ) ) {}
   NamespaceName( Quill::String const & text ) : NamespaceName( text.view() ) {} // NOLINT

   // The namespace of the default VRF: the process's own. No other namespace has this name.
   static constexpr char const * defaultText = "default";
   static NamespaceName defaultNamespace() { return NamespaceName( defaultText ); }
};

} // namespace Corvid
