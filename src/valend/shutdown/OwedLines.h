// Lines of the journal that could not be written yet, oldest first. Of one shutdown the newest line is enough:
// it has all of it. They are bounded: the oldest are given up, except those without which a restart would
// resume a shutdown that has ended.
#pragma once

#include "platform/quill/Int.h"

#include <list>
#include <map>
#include <string>

namespace Valend {

class OwedLines {
 public:
   static constexpr std::size_t limit = 1u << 20; // bytes

   enum class Kind : U8 {
      optional, // the file has no line of that shutdown
      needed,   // it has one
   };
   struct Line {
      U64 id;
      std::string text;      // with the newline
      std::size_t roomAfter; // bytes that the further lines of that shutdown will need
      Kind kind;
   };
   using Lines = std::list< Line >;

   // Adds a line, which replaces an older one of the same id.
   void add( Line line );
   // Returns the line after it.
   Lines::iterator remove( Lines::iterator line );

   Lines::iterator begin() noexcept { return lines_.begin(); }
   Lines::iterator end() noexcept { return lines_.end(); }
   bool empty() const noexcept { return lines_.empty(); }
   std::size_t bytes() const noexcept { return bytes_; }

 private:
   Lines lines_;
   std::map< U64, Lines::iterator > byId_;
   std::size_t bytes_ = 0;
};

} // namespace Valend
