// The past: shutdowns, goodbyes, and links that were set down outside valend.
//
// It is bounded, in all and for each interface, so that one interface does not push out the others. A link that
// is set down outside valend again and again has one record, with a count.
#pragma once

#include "valend/shutdown/ShutdownRecord.h"

#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>

namespace Valend {

class History {
 public:
   using Records = std::list< ShutdownRecord >;

   History() = default;
   History( History && ) = default;
   History & operator=( History && ) = default;

   // Records; the oldest ones are forgotten.
   static constexpr std::size_t limit = 1000;
   static constexpr std::size_t interfaceLimit = 100;
   // A repeat is not longer after the one before.
   static constexpr std::chrono::hours repeatWithin{ 1 };

   // A record, and the id that it was added with.
   struct Entry {
      U64 id; // in the journal
      ShutdownRecord const & record;
   };

   // Adds a record, as the newest.
   void add( U64 id, ShutdownRecord record );
   // If `record` is that of a link that was set down outside valend, and repeats the newest of its
   // interface: adds its count to that one, which becomes the newest of all, and returns it.
   std::optional< Entry > repeat( ShutdownRecord const & record );

   // In the order of their ends, the newest last.
   Records const & records() const noexcept { return records_; }

 private:
   struct OfInterface {
      std::deque< Records::iterator > records; // the newest last
      U64 newestId = 0;
   };

   void forgetOldest( std::string const & interface );

   Records records_;
   std::map< std::string, OfInterface > interfaces_;
};

} // namespace Valend
