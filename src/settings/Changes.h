// What a new configuration changes, in words.
#pragma once

#include "settings/Config.h"

#include <string>
#include <vector>

namespace Settings {

// One line for each thing that differs: "interface Ethernet1: messages of lldp changed". Empty when
// both come to the same. Settings of the process are left out: see processChanges().
std::vector< std::string > changesBetween( Config const & before, Config const & next );

// One line for each setting in which `wanted` differs from what the process was started with, and
// which it takes up only when it is started again.
std::vector< std::string > processChanges( ProcessConfig const & started,
                                           ProcessConfig const & wanted );

} // namespace Settings
