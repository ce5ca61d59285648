// Whether a test is run by the root of a user namespace, as scripts/sandbox makes it for other users. It may do less than
// the machine's: it cannot load filters.
#pragma once

#include <fstream>

namespace Valen::Test {

inline bool inUserNamespace() {
   constexpr unsigned long all = 4294967295; // user ids
   unsigned long inside = 0, outside = 0, count = 0;
   std::ifstream( "/proc/self/uid_map" ) >> inside >> outside >> count;
   return count != all;
}

inline constexpr char const * filtersNeedRoot = "loading filters needs root of the machine";

} // namespace Valen::Test
