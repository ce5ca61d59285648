// The configuration's types, by the names that the agent calls them.
#pragma once

#include "config/Config.h"

namespace Valend {

using ValenConfig::Config;
using ValenConfig::defaultVrf;
using ValenConfig::Frames;
using ValenConfig::InterfaceConfig;
using ValenConfig::ProcessConfig;

} // namespace Valend
