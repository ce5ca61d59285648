// A call's parameters, taken by name and checked against their types.
#pragma once

#include "varlink/Call.h"

#include <optional>
#include <string>
#include <vector>

namespace Varlink {

// A parameter that is missing, or not of its type.
struct BadParameter {
   char const * name;
};

// Each gives nothing for a parameter that is absent or null, and throws BadParameter for one that is
// of another type.
std::optional< std::string > optionalText( Call const & call, char const * name );
std::optional< std::vector< std::string > > optionalTexts( Call const & call, char const * name );
std::optional< U64 > optionalCount( Call const & call, char const * name );
// False for one that is absent.
bool optionalFlag( Call const & call, char const * name );

// Throw BadParameter for one that is absent, too.
std::string requiredText( Call const & call, char const * name );
std::vector< std::string > requiredTexts( Call const & call, char const * name );

} // namespace Varlink
