// What a new configuration changes, in words.
#pragma once

#include "settings/Config.h"

#include <string>
#include <vector>

namespace Settings {

// One line for each difference: "interface Ethernet1: messages of lldp changed, 2 frames". Settings of
// the process are not included: see processChanges().
std::vector< std::string > changesBetween( Config const & before, Config const & next );

// One line for each setting of the process that differs, among those that take effect at
// `takesEffect`: "trace.levels */0, was */0-1", "socket /s: takes effect at the next start".
std::vector< std::string > processChanges( ProcessConfig const & before, ProcessConfig const & next,
                                           TakesEffect takesEffect );

} // namespace Settings
