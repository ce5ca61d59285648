// Conditions: problems outside the daemon, each with a name, from when it is noticed until it is over.
// Every change is logged; `valenctl status` and the metrics list those that are raised.
//
// A unit that depends on something outside (a file, a namespace) owns a Condition for it, and raises
// or clears it after each attempt.
#pragma once

#include "valend/base/Log.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace Valend {

class Condition;

// The conditions of the daemon. Outlives every Condition in it.
class Conditions {
 public:
   using LogLine = std::function< void( LogLevel level, std::string const & text ) >;

   struct Raised {
      std::string name; // "journal", "vrf/red"
      std::string text; // what is wrong, on what, and why
      std::chrono::system_clock::time_point since;
   };

   explicit Conditions( LogLine logLine = logCondition );
   Conditions( Conditions const & ) = delete;
   Conditions & operator=( Conditions const & ) = delete;

   // Those that are raised now, by name.
   std::vector< Raised > raised() const;
   // Whether a condition of that name is raised.
   bool isRaised( std::string const & name ) const;

 private:
   friend class Condition;

   // With the MESSAGE_ID of a condition that is raised, which is an error, or cleared.
   static void logCondition( LogLevel level, std::string const & text );

   LogLine const logLine_;
   std::vector< Condition const * > all_;
};

class Condition {
 public:
   // `name` is unique among those that exist at a time: "journal", "vrf/red".
   Condition( Conditions & conditions, std::string name );
   ~Condition(); // without a log line: its owner is gone
   Condition( Condition const & ) = delete;
   Condition & operator=( Condition const & ) = delete;

   std::string const & name() const noexcept { return name_; }
   // Raises the condition, or changes its text: "cannot write FILE: No space left on device". No
   // effect when it is raised with that text already.
   void raise( std::string text );
   // No effect on one that is not raised.
   void clear();
   // Raises it with `text`, or clears it when the text is empty.
   void update( std::string text );

   bool raised() const noexcept { return !text_.empty(); }
   // Empty when it is not raised.
   std::string const & text() const noexcept { return text_; }

 private:
   friend class Conditions;

   Conditions & conditions_;
   std::string const name_;
   std::string text_;
   std::chrono::system_clock::time_point since_;
};

} // namespace Valend
