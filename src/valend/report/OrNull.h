// Texts of the API that are null when there is nothing to say.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Valend {

inline nlohmann::json orNull( std::string const & text ) {
   return text.empty() ? nlohmann::json() : nlohmann::json( text );
}

} // namespace Valend
