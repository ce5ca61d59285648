#pragma once

namespace Valend {

extern char const * const version; // "0.1.0"

} // namespace Valend
