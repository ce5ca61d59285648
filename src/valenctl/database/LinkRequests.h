// Requests for links of many hosts: written to the database, and followed until the daemons have carried them out.
//
// A request is a hash with an id of its own. It is there until a daemon acts on it, so it outlives a lost connection
// and the end of this process. The daemon answers in the status of the interface, and in the history.
#pragma once

#include "valenctl/database/Choice.h"

#include <functional>
#include <optional>

namespace Valenctl {

struct LinkOrder {
   bool up = false; // enable; else shut down
   std::optional< std::string > reason = {};
   std::optional< std::int64_t > delayMs = {};
   bool wait =
      false; // until the shutdowns have ended; else until the daemons have acted on the requests
};

struct LinkRequest {
   enum class State {
      written,  // the daemon has not acted on it
      running,  // the link is held, or being changed
      ended,    // `result` says how
      replaced, // another request took its place before the daemon acted on it
   };

   Host const * host;
   std::string interface;
   std::string id;
   State state = State::written;
   std::string result = {};                  // as the daemon wrote it
   std::chrono::milliseconds heldUntil{ 0 }; // since 1970; 0: unknown
   Json record = nullptr; // of a shutdown that has ended: the API's type ShutdownRecord
   std::optional< std::chrono::steady_clock::time_point > endedAt =
      {};             // when the result was seen first
   bool done = false; // nothing more is expected for the order
};

class LinkRequests {
 public:
   // Called with each request whose state has changed.
   using Changed = std::function< void( LinkRequest const & ) >;

   // `by`: who asks, for the histories. Keeps pointers to the hosts of `chosen`.
   LinkRequests( DatabaseClient & client, std::vector< Chosen > const & chosen, LinkOrder order,
                 std::string const & by );

   // Writes all requests.
   void write();
   // Reads what became of those that are not done.
   void poll( Changed const & changed );

   std::vector< LinkRequest > const & requests() const noexcept { return requests_; }
   std::size_t pending() const noexcept;
   // The last time at which a link is still held, as far as it is known; since 1970.
   std::chrono::milliseconds heldUntil() const noexcept;

 private:
   std::vector< DatabaseClient::Command > writing( LinkRequest const & request ) const;
   bool take( LinkRequest & request, Database::Reply const & status, Database::Reply const & want );
   void readRecords( std::vector< LinkRequest * > const & wanted );

   DatabaseClient & client_;
   LinkOrder const order_;
   std::string const by_;
   std::vector< LinkRequest > requests_;
};

} // namespace Valenctl
