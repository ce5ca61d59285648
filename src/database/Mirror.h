// The hashes below some names of a prefix, as this process last read them.
//
// Subscribes to notices first, then reads everything, then follows the notices, and reads a value after each. After
// each loss of a connection, everything is read again. What is no longer there is removed only when everything was
// read, so nothing changes while the server is away; that of a server that comes back empty is removed. From time to time
// the names are compared with those of the server. While notices cannot be relied upon, everything is read at short
// intervals instead.
//
// A hash that cannot be read is reported as such, and its last value stays.
#pragma once

#include "database/Fields.h"
#include "database/Notices.h"
#include "database/Scan.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Database {

class Mirror {
 public:
   struct Options {
      Connection::Options connection; // with the name of the connections
      std::string prefix;
      std::vector< std::string > names;            // what names begin with
      std::chrono::milliseconds compare{ 10'000 }; // the time between two comparisons of the names
      std::chrono::milliseconds poll{ 1'000 };     // the time between two readings, without notices
      std::chrono::milliseconds noticeTimeout{ 1'000 }; // how long a notice may take
      std::size_t entityBytes = 4u << 20;               // a larger hash is not read
      std::size_t allBytes = 256u << 20;                // what would exceed this is not kept
      std::size_t entities = 100'000;                   // above, reading is an error
   };
   // None may be empty. They may not destroy the mirror.
   struct Events {
      std::function< void( std::string const & name, Fields const & fields ) >
         entityIs; // new, or another one
      std::function< void( std::string const & name ) > entityGone;
      // Exists, and cannot be read. Over with the next call of one of the above for the name.
      std::function< void( std::string const & name, std::string const & why ) > unreadable;
      std::function< void() > complete; // everything was read: first, and after a loss
      // Why the mirror is not what the server has, or only after a while; empty when nothing is wrong any more.
      std::function< void( std::string const & why ) > problem;
   };

   // `loop` must outlive this.
   Mirror( Valen::Linux::EventLoop & loop, Options options, Events events );

   void start();
   // Reads everything again, for a reason to believe that the server has not told of all changes.
   void readAgain() { begin( Extent::values ); }

   // By name, without those that were never readable.
   std::map< std::string, Fields > content() const;
   std::size_t entities() const noexcept { return entities_.size(); }
   bool up() const noexcept { return reader_.up(); }
   // Connections made again.
   U64 reconnects() const noexcept;
   // How often a value was read.
   U64 reads() const noexcept { return reads_; }

 private:
   struct Entity {
      std::optional< Fields > fields; // the last that were read
      std::string unreadable;         // why it cannot be read now; empty if it can
      bool tooLarge = false; // not read until it is smaller: its reply would end the connection
   };
   enum class Phase : U8 {
      idle,
      scanning,  // the names are read, and the values of those that are new, or of all
      verifying, // the values of names that were not found, which are probably gone
   };
   enum class Extent : U8 { names, values };

   void readerUp();
   void readerLost( std::string const & why );
   void noticesChanged();
   void begin( Extent extent );
   void found( std::string const & name );
   void failed( std::string const & why );
   void proceed();
   void finished();
   void tickLater();
   void tick();

   enum class For : U8 { notice, pass };
   void enqueue( std::string const & name, For purpose );
   void pump();
   void ask( std::string const & name );
   void askValue( std::string const & name, std::string const & key, U64 pass );
   void answered( U64 pass, Reply const & reply );
   void take( std::string const & name, Reply const & reply );
   void valueIs( std::string const & name, Fields fields );
   enum class Size : U8 { fits, tooLarge };
   void unreadableIs( std::string const & name, std::string const & why, Size size = Size::fits );
   void remove( std::string const & name );
   void updateProblem();

   Valen::Linux::EventLoop & loop_;
   Options const options_;
   Events const events_;
   std::map< std::string, Entity > entities_; // by name
   std::size_t bytes_ = 0;                    // of all values
   U64 reads_ = 0;

   // What is to be read, in order, and for which pass: 0 for none.
   std::deque< std::string > queue_;
   std::unordered_map< std::string, U64 > queued_;

   // The pass over everything.
   Phase phase_ = Phase::idle;
   Extent extent_ = Extent::values;
   U64 pass_ = 0;
   std::size_t left_ = 0; // values to read in this pass
   std::unordered_set< std::string > seen_;
   bool whole_ = false; // everything was read since the last loss
   Gantry::Time began_{};
   Gantry::Time took_{};

   std::string readerWhy_;
   std::string readingWhy_;
   std::string problem_; // as last reported
   Connection reader_;
   Scan scan_;
   Notices notices_;
   Gantry::Timer tick_;
   Gantry::PostedWork posted_;
   bool pumping_ = false; // it is posted
};

} // namespace Database
