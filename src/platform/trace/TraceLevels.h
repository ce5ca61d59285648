// Trace levels as text: which levels each source unit traces.
#pragma once

#include "platform/quill/Int.h"

#include <string>
#include <string_view>
#include <vector>

namespace Quill {

// A list of patterns such as "ConfigSm/0-1,Intf*/0". A final "*" stands for any ending. The later
// pattern wins, and a unit that none names has all levels off. A plain value: parsing one sets
// nothing; traceLevelsIs() applies it.
class TraceLevels {
 public:
   TraceLevels() = default; // no patterns: everything is off

   // Throws RangeException, which names the pattern, when `text` does not parse.
   explicit TraceLevels( std::string_view text );

   // As it was parsed.
   std::string const & text() const noexcept { return text_; }

   // The levels of the unit; bit n is set when level n is on.
   U32 maskOf( std::string_view unit ) const noexcept;

 private:
   struct Pattern {
      std::string name;
      U32 mask;

      bool matches( std::string_view unit ) const noexcept;
   };
   static Pattern parsed( std::string_view pattern );

   std::string text_;
   std::vector< Pattern > patterns_;
};

} // namespace Quill
