// The version of Valen.
#pragma once

namespace Settings {

extern char const * const version; // "0.1.0"

} // namespace Settings
