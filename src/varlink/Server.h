// A service at a Unix socket: accepts connections, and bounds how many there are (Admission.h).
//
// Everything a client can do is bounded: the size of a message, the number of connections in all
// and of each user, the answers that wait for a slow reader and how long they do. The clients' calls
// take turns, a call at a time. The calls of a client that has disconnected are still executed.
#pragma once

#include "varlink/Connection.h"
#include "varlink/UnixSocket.h"

#include <map>

namespace Varlink {

class Server {
 public:
   // Whether the process can do without the descriptor of another client.
   using Room = std::function< bool() >;

   // Listens at `path`, as a ListeningSocket. `loop` and `service` must outlive the server. Without `room`,
   // there always is. Throws what that throws.
   Server( Valen::Linux::EventLoop & loop, std::string path, Service & service,
           Limits limits = Limits(), Room room = nullptr );
   ~Server(); // closes all connections, removes the socket
   Server( Server const & ) = delete;
   Server & operator=( Server const & ) = delete;

   std::string const & path() const noexcept { return path_; }
   std::size_t connections() const noexcept { return connections_.size(); }
   // Clients that were disconnected for passing a limit, by reason.
   struct Dropped {
      U64 tooLong = 0;    // a call was
      U64 notReading = 0; // answers were not taken
      U64 madeRoom = 0;   // for another client
      U64 refused = 0;    // as soon as they connected
      bool operator==( Dropped const & ) const = default;
   };
   Dropped const & dropped() const noexcept { return dropped_; }

 private:
   void listen();
   void acceptAll();
   bool accept();
   bool admit( Caller const & caller, Rank rank );
   std::vector< Seat > seats() const;
   void closed( Connection const & connection, Connection::End end );

   Valen::Linux::EventLoop & loop_;
   std::string const path_;
   Service & service_;
   Limits const limits_;
   Room const room_;
   ListeningSocket const listener_;
   Gantry::Timer pause_; // when the process is out of descriptors
   Gantry::PostedWork posted_;
   std::map< U64, std::shared_ptr< Connection > > connections_; // by number
   U64 clients_ = 0;                                            // ever
   Dropped dropped_;
};

} // namespace Varlink
