// Writes a configuration as one file, which ConfigReader reads as the same configuration.
#pragma once

#include "settings/Config.h"

#include <string>

namespace Settings {

// The configuration in YAML. Frames are hexadecimal digits, whatever file they came from.
std::string yamlOf( Config const & config );

} // namespace Settings
