// Whether keys exist: asked for again and again, each key once a period.
//
// While the server is away, nothing changes.
#pragma once

#include "database/Connection.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Database {

class Leases {
 public:
   static constexpr std::chrono::milliseconds period{ 1'000 };
   // Is told at first, and when it has changed. May not destroy the leases.
   using Tell = std::function< void( std::string const & key, bool exists ) >;

   // `connection` must outlive this. Its owner calls up() and ready() at its events.
   Leases( Valen::Linux::EventLoop & loop, Connection & connection, Tell tell );

   void wantedIs( std::string const & key, bool wanted );

   void up() { begin(); }
   void ready() { proceed(); }

 private:
   void begin();
   void proceed();
   void ask( std::string const & key );

   Connection & connection_;
   Tell const tell_;
   std::map< std::string, std::optional< bool > > keys_; // with what was told last
   std::string last_;                                    // that was asked for in this round
   bool round_ = false;                                  // it is not at its end
   Gantry::Timer period_;
};

} // namespace Database
