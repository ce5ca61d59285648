// Shutdowns as JSON: for the control API, and for the journal, which reads them back.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <nlohmann/json.hpp>

namespace Valend {

// A ShutdownRecord as org.valen.daemon.varlink describes it. An empty text becomes null.
nlohmann::json toJson( ShutdownRecord const & record );

// The inverse of toJson; `when` and `until` are exact to the millisecond. Throws nlohmann::json::exception when a
// field is missing or has the wrong type.
ShutdownRecord recordFromJson( nlohmann::json const & json );

} // namespace Valend
