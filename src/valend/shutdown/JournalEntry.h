// One shutdown as it stands in the journal.
#pragma once

#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/ShutdownRecord.h"

#include <nlohmann/json.hpp>

namespace Valend {

// Everything that an agent needs to finish the shutdown. Times are the machine's, since its boot
// (CLOCK_BOOTTIME); they mean nothing after another one.
struct JournalEntry {
   enum class Phase : U8 {
      asked,    // nothing was done yet
      sending,  // the frames are going out; `sentAt` and `heldUntil` are set
      held,     // they are out
      flushing, // the delay is over; the socket empties
      lowering, // the link is being set down
      ended,
   };

   U64 id = 0; // tells it from all others; 0: it was not written yet
   Phase phase = Phase::asked;
   LinkPlace place; // where the interface is, or was when it was configured last
   std::string bootId;
   std::chrono::nanoseconds askedAt{ 0 };
   std::chrono::nanoseconds sentAt{ 0 };
   std::chrono::nanoseconds heldUntil{ 0 };
   ShutdownRecord record;

   bool operator==( JournalEntry const & ) const = default;

   nlohmann::json toJson() const;
   // Throws nlohmann::json::exception, or std::out_of_range for an unknown phase.
   static JournalEntry fromJson( nlohmann::json const & json );
};

// A line of the journal: a checksum, a blank and the entry as JSON; no final newline.
std::string lineOf( JournalEntry const & entry );
// The entry that stands in a line. Nothing when the line is torn or no line of a journal.
std::optional< JournalEntry > entryIn( std::string_view line );

} // namespace Valend
