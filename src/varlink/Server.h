// The door of the control API: a Unix socket on which clients send JSON objects, each ended by a
// zero byte, and get answers of the same kind, in order.
//
// Everything a client can do is bounded: the size of a message, the number of connections in all
// and of each user, the answers that wait for a slow reader and how long they do. One client's
// calls take turns with everybody else's, a call at a time. What a client that hangs up has asked
// for before is still done.
#pragma once

#include "linux/EventLoop.h"
#include "platform/gantry/Timer.h"
#include "varlink/Call.h"

#include <chrono>
#include <map>
#include <memory>

namespace Varlink {

struct Limits {
   std::size_t messageBytes = 1u << 18;  // of one call
   std::size_t waitingBytes = 32u << 20; // of answers that a client does not take
   std::chrono::milliseconds patience = std::chrono::seconds( 10 ); // with one that takes none
   std::size_t connections = 256;
   std::size_t connectionsPerUser = 64; // except root
};

class Server {
 public:
   // Listens at `path`, where a socket that nobody answers at is replaced; makes its folder. `loop`
   // and `service` must outlive the server. Throws Quill::ErrnoException: EADDRINUSE when another
   // agent answers there.
   Server( Valen::Linux::EventLoop & loop, std::string path, Service & service,
           Limits limits = Limits() );
   ~Server(); // drops all clients, removes the socket
   Server( Server const & ) = delete;
   Server & operator=( Server const & ) = delete;

   std::string const & path() const noexcept { return path_; }
   std::size_t connections() const noexcept { return connections_.size(); }
   // Clients dropped for passing a limit.
   U64 dropped() const noexcept { return dropped_; }

 private:
   class Connection;

   void listen();
   void accept();
   bool admit( Caller const & caller );
   void remove( int fd, U64 client, bool forPassingALimit );

   Valen::Linux::EventLoop & loop_;
   std::string const path_;
   Service & service_;
   Limits const limits_;
   Valen::Linux::Fd listener_;
   Gantry::Timer pause_;                 // without descriptors
   std::shared_ptr< bool > const alive_; // put-off work looks whether the server still is
   std::map< int, std::shared_ptr< Connection > > connections_;
   U64 clients_ = 0; // ever
   U64 turn_ = 0;    // counts what clients do, to tell who was idle longest
   U64 dropped_ = 0;
};

} // namespace Varlink
