// What the files of the journal have, line by line: the last entry of each shutdown counts.
#pragma once

#include "valend/shutdown/History.h"
#include "valend/shutdown/JournalEntry.h"

#include <map>
#include <string_view>
#include <vector>

namespace Valend {

class JournalReading {
 public:
   // Adds the entries in `lines`, which come after those that were added before. Returns how many lines are damaged,
   // one that has no end included.
   std::size_t addLines( std::string_view lines );

   // By id: the last entry of each shutdown.
   std::map< U64, JournalEntry > const & entries() const noexcept { return entries_; }
   // Those that have ended, in the order of their last lines.
   std::vector< U64 > ended() const;
   History history() const;
   // Whether the entry is the newest of its interface.
   bool newest( JournalEntry const & entry ) const;

 private:
   void add( JournalEntry entry );

   std::map< U64, JournalEntry > entries_;
   std::vector< U64 > ends_;             // in the order of their lines; one may have several
   std::map< std::string, U64 > newest_; // by interface
};

} // namespace Valend
