// A request that cannot be carried out: a name for programs, a line for people.
#pragma once

#include <stdexcept>
#include <string>

namespace Valend {

class Refusal : public std::runtime_error {
 public:
   // `name` as in the API's description: "NoSuchInterface".
   Refusal( std::string name, std::string const & text )
       : runtime_error( text ), name_( std::move( name ) ) {}

   std::string const & name() const noexcept { return name_; }

 private:
   std::string name_;
};

} // namespace Valend
