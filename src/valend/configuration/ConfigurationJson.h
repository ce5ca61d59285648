// The active configuration as JSON.
#pragma once

#include "valend/configuration/ActiveConfiguration.h"

#include <nlohmann/json.hpp>

namespace Valend {

// What the API's method Config answers: files, settings, VRFs, interfaces and messages, each with the
// place that it comes from.
nlohmann::json configurationJson( ActiveConfiguration const & active );

} // namespace Valend
