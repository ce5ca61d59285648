// A request that cannot be carried out: a name for programs, a line for people. Errors.h has them
// all.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace Valend {

class Refusal : public std::runtime_error {
 public:
   // `name` as in the API's description: "NoSuchInterface". `details`: an object of the parameters
   // that the error has besides "message".
   Refusal( std::string name, std::string const & text,
            nlohmann::json details = nlohmann::json::object() )
       : runtime_error( text ), name_( std::move( name ) ), parameters_( std::move( details ) ) {
      parameters_[ "message" ] = text;
   }

   std::string const & name() const noexcept { return name_; }
   nlohmann::json const & parameters() const noexcept { return parameters_; }

 private:
   std::string name_;
   nlohmann::json parameters_;
};

} // namespace Valend
