// Where a command's output goes, and in which form.
#pragma once

#include "valenctl/text/Terminal.h"

#include <iosfwd>

namespace Valenctl {

// How answers are printed: as text for people, or as JSON.
enum class Format { text, json };

// Where output goes: data to `out`, everything else to `err`. Keeps references; both streams outlive
// it.
struct Output {
   std::ostream & out;
   std::ostream & err;
   Terminal terminal;
   Format format;

   bool json() const noexcept { return format == Format::json; }
};

} // namespace Valenctl
