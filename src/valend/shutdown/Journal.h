// What the operator asked for, in files that outlive the agent, so that an agent that is started
// after a crash finishes what was begun.
//
// The state directory holds the file "shutdowns", to which a line is added whenever a shutdown
// enters a phase, before the agent acts on it. A line is whole in itself: the last one of a shutdown
// tells all. When the file is full it becomes "shutdowns.1", in place of the one before, and a new
// one begins with what is still under way. A file that is torn, or is none of ours, becomes
// "shutdowns.damaged", and what it holds that is whole goes on in a new one.
//
// Lines are written, never synced: they outlive the agent as soon as they are written. What a loss
// of power could still take away no longer matters then, for the links were reset with the machine.
//
// Nothing here ever throws or stops a shutdown: what goes wrong is in trouble(), and is said when it
// comes and when it goes.
#pragma once

#include "linux/Fd.h"
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
      std::string bootId;                                 // another one after every boot
      std::function< std::chrono::nanoseconds() > uptime; // asleep or not

      static Machine real();
   };

   // What was in the journal.
   struct Content {
      std::vector< JournalEntry > running;  // to be finished, oldest first
      std::deque< ShutdownRecord > history; // the newest last
   };

   // Hears what goes wrong, and that it is over. `grave`: shutdowns may be forgotten.
   using Notice = std::function< void( bool grave, std::string const & text ) >;

   static constexpr std::size_t fileLimit = 4u << 20;  // bytes; a shutdown takes about 3,500
   static constexpr std::size_t readLimit = 64u << 20; // a longer file is none of ours
   static constexpr std::size_t historyLimit = 1000;   // shutdowns

   // Keeps the journal in `directory`, which is made if need be; nothing is kept, which is a trouble,
   // when that is empty.
   Journal( std::string directory, Machine machine, Notice notice );
   Journal( Journal const & ) = delete;
   Journal & operator=( Journal const & ) = delete;

   // What agents before this one left. Shutdowns of another boot are in the history, as ended.
   Content read();

   // Adds a line. Gives an entry that has no id yet its own, and every entry this boot's.
   void write( JournalEntry & entry );

   // What is wrong now: "/var/lib/valen/shutdowns: No space left on device"; empty when nothing is.
   std::string const & trouble() const noexcept { return trouble_; }
   std::chrono::nanoseconds uptime() const { return machine_.uptime(); }

 private:
   struct Reading;

   std::string path( char const * suffix = "" ) const;
   bool openDirectory();
   bool readFile( std::string const & path, Reading & reading );
   void setAside( std::string const & path );
   void cutShort( JournalEntry & entry );
   void carryOver( Reading const & reading );
   bool openFile();
   bool append( std::string const & text );
   void rotate();
   void troubleIs( std::string text );

   std::string const directory_;
   Machine const machine_;
   Notice const notice_;
   Valen::Linux::Fd lock_; // the directory
   Valen::Linux::Fd file_;
   std::size_t bytes_ = 0;        // in the file
   std::size_t carriedBytes_ = 0; // of them when it was begun
   U64 lastId_ = 0;
   std::map< U64, std::string > running_; // the last line of each
   std::string trouble_;
};

} // namespace Valend
