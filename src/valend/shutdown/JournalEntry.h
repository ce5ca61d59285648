// One shutdown as recorded in the journal.
#pragma once

#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/Phase.h"
#include "valend/shutdown/ShutdownRecord.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Valend {

// From when until when a link is held, on the machine's or on the scheduler's clock.
struct Hold {
   std::chrono::nanoseconds from{ 0 }; // the sending began
   std::chrono::nanoseconds until{ 0 };
   bool operator==( Hold const & ) const = default;
};

// By what a link is recognized after a restart of valend. The kernel does not report whether a link was set
// down and up again; what it counts is how often the carrier came up, which is part of that on
// every device that has one. A device that was recreated has another index.
struct LinkMark {
   U32 ifIndex = 0;
   U32 carrierUps = 0;
   bool operator==( LinkMark const & ) const = default;
};

// Everything that is needed to finish the shutdown after a restart. Times are the machine's, since
// its boot (CLOCK_BOOTTIME); they mean nothing after another boot.
struct JournalEntry {
   U64 id = 0; // unique; 0 until it is written
   Phase phase = Phase::requested;
   std::string bootId;
   std::chrono::nanoseconds requestedAt{ 0 };
   std::optional< Hold > hold;     // set when the sending begins
   std::optional< LinkMark > mark; // of the link that is to go down; nothing when it was not known
   std::vector< SpeakerIdentity > muted; // now
   ShutdownRecord record;

   bool operator==( JournalEntry const & ) const = default;

   nlohmann::json toJson() const;
   // Throws nlohmann::json::exception, or std::out_of_range for an unknown phase
   // or one that is held without a hold.
   static JournalEntry fromJson( nlohmann::json const & json );
};

// A line of the journal: a checksum, a space and the entry as JSON; without the final newline.
std::string lineOf( JournalEntry const & entry );
// The entry in a line. Nothing when the line is damaged or not from a journal.
std::optional< JournalEntry > entryIn( std::string_view line );

} // namespace Valend
