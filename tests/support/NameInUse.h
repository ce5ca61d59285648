// The error of a call that meets a member which exists with other parameters.
#pragma once

#include "platform/quill/Exception.h"

#include <string>

namespace Valen::Test {

// The error's text; empty if the call succeeds.
template < class Call > std::string nameInUse( Call const & call ) {
   Quill::Expect const expected( Quill::ExceptionId::nameInUse );
   try {
      call();
      return std::string();
   } catch ( Quill::NameInUseException const & e ) {
      return e.what();
   }
}

} // namespace Valen::Test
