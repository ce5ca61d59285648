// The errors that every service has: org.varlink.service.varlink lists them.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace Varlink {

using Json = nlohmann::json;

// An error of a call, as it is thrown until something answers it.
class Error : public std::runtime_error {
 public:
   // `name` is qualified.
   Error( std::string name, Json parameters )
       : runtime_error( name + " " +
                        parameters.dump( -1, ' ', false, Json::error_handler_t::replace ) ),
         name_( std::move( name ) ), parameters_( std::move( parameters ) ) {}

   std::string const & name() const noexcept { return name_; }
   Json const & parameters() const noexcept { return parameters_; }

 private:
   std::string name_;
   Json parameters_;
};

namespace Errors {

inline Error interfaceNotFound( std::string const & interface ) {
   return Error( "org.varlink.service.InterfaceNotFound", { { "interface", interface } } );
}
inline Error methodNotFound( std::string const & method ) {
   return Error( "org.varlink.service.MethodNotFound", { { "method", method } } );
}
// A parameter that is missing, unknown, or not of its type.
inline Error invalidParameter( std::string const & parameter ) {
   return Error( "org.varlink.service.InvalidParameter", { { "parameter", parameter } } );
}
inline Error permissionDenied( std::string const & message ) {
   return Error( "org.varlink.service.PermissionDenied", { { "message", message } } );
}
inline Error expectedMore( std::string const & message ) {
   return Error( "org.varlink.service.ExpectedMore", { { "message", message } } );
}

} // namespace Errors
} // namespace Varlink
