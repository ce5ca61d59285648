// A call as it comes over the connection.
#pragma once

#include "varlink/Call.h"

#include <optional>

namespace Varlink {

struct CallMessage {
   std::string method;
   Json parameters; // an object, unless the client sent something else
   Wanted wanted;

   // Nothing when the text is not a call at all, or is nested deeper than any call need be: to parse
   // that would cost far more than its length.
   static std::optional< CallMessage > parse( std::string const & text );
};

} // namespace Varlink
