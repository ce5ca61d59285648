// The file of shutdowns. It survives a restart of valend, which then finishes what it had begun.
//
// The state directory holds the file "shutdowns". A line is added whenever a shutdown enters a phase,
// before valend acts on it; the last line of a shutdown has all of it. A full file becomes
// "shutdowns.1", replacing the previous one, and a new file begins with the shutdowns that are running.
// A damaged file, or one that is not a journal, becomes "shutdowns.damaged", and the new file begins
// with its undamaged lines.
//
// Lines are written but not synced: they survive a crash of valend. A power failure may lose the last
// ones, but it also resets the links.
//
// A shutdown is recorded from its beginning to its end, or not at all: its first line is written when the
// file has room for all of its lines, which is then reserved. One that has begun and whose end is missing
// would be resumed by the next start, although its interface may have been enabled since.
//
// A line that cannot be written is kept, and written before any other of its shutdown when there is room: with a
// later line, by a timer, or when valend stops.
//
// A journal that cannot be written does not stop shutdowns: it raises the condition "journal".
#pragma once

#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "valend/base/Conditions.h"
#include "valend/shutdown/History.h"
#include "valend/shutdown/JournalEntry.h"
#include "valend/shutdown/JournalFile.h"
#include "valend/shutdown/JournalReading.h"
#include "valend/shutdown/OwedLines.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Valend {

class Journal {
 public:
   // The machine that the journal is kept on.
   struct Machine {
      std::string bootId;                                 // changes with every boot
      std::function< std::chrono::nanoseconds() > uptime; // includes suspend

      static Machine real();
   };

   struct Content {
      std::vector< JournalEntry > unfinished; // of any boot, oldest first
      std::vector< JournalEntry > superseded; // unfinished; the interface has a newer entry
      History history;
   };

   // Called with each file that is damaged: what is wrong, and where it was moved.
   using Damaged = std::function< void( std::string const & text ) >;

   static constexpr std::size_t fileLimit = 4u << 20;  // bytes; a shutdown takes about 3,500
   static constexpr std::size_t readLimit = 64u << 20; // bytes; a longer file is not a journal
   // Pauses before what could not be written is tried again.
   static constexpr std::chrono::seconds firstRetry{ 1 };
   static constexpr std::chrono::seconds lastRetry{ 60 };

   // Without a state directory it raises the condition. The first two, and `conditions`, must outlive
   // the journal.
   Journal(
      StateDirectory & directory, Quill::Ptr< Gantry::TaskScheduler > scheduler, Machine machine,
      Conditions & conditions,
      Damaged damaged = []( std::string const & text ) { log( LogLevel::error, text ); } );
   ~Journal(); // writes what is owed, if there is room now
   Journal( Journal const & ) = delete;
   Journal & operator=( Journal const & ) = delete;

   // What previous runs left.
   Content read();

   // Adds a line. Gives an entry its id, unless it has one, and this boot's.
   void write( JournalEntry & entry ) noexcept;

   // The text of the condition; empty when the journal works.
   std::string const & conditionText() const noexcept { return condition_.text(); }
   std::chrono::nanoseconds uptime() const { return machine_.uptime(); }
   std::string const & bootId() const noexcept { return machine_.bootId; }

 private:
   // A shutdown that has a line in the file, and has not ended there.
   struct Begun {
      std::string line;
      std::size_t roomAfter;
   };

   bool readFile( char const * suffix, JournalReading & reading );
   void setAside( char const * suffix, std::string const & why );
   void copyUndamaged( JournalReading const & reading );
   void addLine( JournalEntry & entry );
   void retry();
   void writeOwed();
   std::string writeLine( OwedLines::Line const & line );
   void begunIs( U64 id, std::string line, std::size_t roomAfter );
   void begunDel( U64 id );
   std::string rotate();
   void report( std::string const & why );

   StateDirectory & directory_;
   Machine const machine_;
   Condition condition_;
   Damaged const damaged_;
   JournalFile file_;
   std::size_t rotateAt_ = fileLimit; // bytes
   U64 lastId_ = 0;
   OwedLines owed_;
   std::map< U64, Begun > begun_;
   std::size_t room_ = 0; // that those that have begun need
   Gantry::Backoff pause_{ firstRetry, lastRetry };
   Gantry::Timer timer_; // while something is owed
};

} // namespace Valend
