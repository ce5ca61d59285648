// A failure as JSON, in the form of an error that valend answers with.
#pragma once

#include "valenctl/text/JsonFields.h"

namespace Valenctl {

// {"error": NAME, "parameters": {"message": TEXT, ...}}. `parameters` is what else is known about it; a
// message in it is kept.
inline Json errorJson( std::string const & name, std::string const & text,
                       Json parameters = Json::object() ) {
   if ( !parameters.is_object() || textField( parameters, "message" ).empty() ) {
      parameters[ "message" ] = text;
   }
   return { { "error", name }, { "parameters", std::move( parameters ) } };
}

} // namespace Valenctl
