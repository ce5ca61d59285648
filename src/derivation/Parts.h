// The parts of what a speaker says, if it takes several frames.
#pragma once

#include "derivation/Layers.h"

#include <vector>

namespace Derivation {

// A frame to one neighbor says it to no other: "to 192.0.2.2". Empty if the frame is sent to a group.
std::string partOf( Packet const & packet );

// These of all routes, records or groups, in any order: "10.0.0.0/8 and 24 more, 5d0c3f9a12be7741". The number
// tells sets apart that look the same.
std::string partOf( std::vector< std::string > names );

// A frame with these of all.
std::string partOf( Packet const & packet, std::vector< std::string > names );

} // namespace Derivation
