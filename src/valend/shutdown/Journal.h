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
// A journal that cannot be written does not stop shutdowns: it raises the condition "journal".
#pragma once

#include "linux/Fd.h"
#include "valend/base/Conditions.h"
#include "valend/shutdown/JournalEntry.h"

#include <deque>
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
      std::deque< ShutdownRecord > history;   // the newest last
   };

   // Called with each file that is damaged: what is wrong, and where it was moved.
   using Damaged = std::function< void( std::string const & text ) >;

   static constexpr std::size_t fileLimit = 4u << 20;  // bytes; a shutdown takes about 3,500
   static constexpr std::size_t readLimit = 64u << 20; // bytes; a longer file is not a journal
   static constexpr std::size_t historyLimit = 1000;   // shutdowns

   // Keeps the journal in `directory`, which it creates; an empty name raises the condition.
   // `conditions` must outlive the journal.
   Journal(
      std::string directory, Machine machine, Conditions & conditions,
      Damaged damaged = []( std::string const & text ) { log( LogLevel::error, text ); } );
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
   struct Reading;

   std::string path( char const * suffix = "" ) const;
   bool openDirectory();
   void readFile( std::string const & path, Reading & reading );
   void setAside( std::string const & path, std::string const & why );
   void copyUndamaged( Reading const & reading );
   void addLine( JournalEntry & entry );
   bool openFile();
   bool append( std::string const & text );
   void rotate();
   void raise( std::string const & what );

   std::string const directory_;
   Machine const machine_;
   Condition condition_;
   Damaged const damaged_;
   Valen::Linux::Fd lock_; // the directory
   Valen::Linux::Fd file_;
   std::size_t bytes_ = 0;       // in the file
   std::size_t copiedBytes_ = 0; // of them when it was begun
   U64 lastId_ = 0;
   std::map< U64, std::string > running_; // the last line of each
};

} // namespace Valend
