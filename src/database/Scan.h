// The names of all keys below a prefix, a part at a time.
#pragma once

#include "database/Connection.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Database {

// `text` as a pattern that matches itself alone.
std::string globOf( std::string_view text );

class Scan {
 public:
   struct Events {
      std::function< void( std::string const & name ) >
         found;                     // at least once for each that exists all the time
      std::function< void() > part; // a part was read; call next() for the next one
      std::function< void( std::string const & why ) > failed; // the server has answered an error
   };

   // Finds keys of the prefix whose names begin with one of `names`. `connection` must outlive this.
   Scan( Connection & connection, std::string prefix, std::vector< std::string > names,
         Events events );

   // Begins from the start. What an earlier one would still find is not reported.
   void start();
   void stop() noexcept { ++run_; }
   // Asks for the next part. No effect at the end, and while a part is being read.
   void next();
   bool done() const noexcept { return done_; }

 private:
   void read( Reply const & reply );

   Connection & connection_;
   std::string const prefix_;
   std::string const pattern_;
   std::vector< std::string > const names_;
   Events const events_;
   std::string cursor_ = "0";
   U64 run_ = 0; // replies of earlier ones are dropped
   bool asked_ = false;
   bool done_ = false;
};

} // namespace Database
