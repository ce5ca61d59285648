// The active configuration as JSON.
#pragma once

#include "valend/configuration/ActiveConfiguration.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

namespace Valend {

// What the API's method Config answers: files, settings and VRFs, each with the place that it comes from.
nlohmann::json settingsJson( ActiveConfiguration const & active );

// The rest of it, one after the other; nothing at the end. It is of the configuration that is active now, whatever
// becomes active meanwhile.
using JsonList = std::function< std::optional< nlohmann::json >() >;
JsonList configuredInterfaces( ActiveConfiguration const & active );
JsonList configuredMessages( ActiveConfiguration const & active );

} // namespace Valend
