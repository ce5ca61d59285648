// Shutdowns as JSON: for the control API, and for the journal, which reads them back.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <nlohmann/json.hpp>

namespace Valend {

// org.valen.daemon.varlink describes it.
nlohmann::json toJson( ShutdownRecord const & record );

// The record that toJson made `json` of, to the millisecond. Throws nlohmann::json::exception when
// it is no such thing.
ShutdownRecord recordFromJson( nlohmann::json const & json );

} // namespace Valend
