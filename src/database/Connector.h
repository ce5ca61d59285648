// Makes a connected socket of an address, without waiting: a thread resolves names and reads password files.
#pragma once

#include "database/address/Address.h"
#include "linux/EventLoop.h"
#include "linux/Worker.h"

#include <functional>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace Database {

class Connector {
 public:
   struct Connected {
      Valen::Linux::Fd socket;
      std::string password; // of the address, or of its file as it is now
   };
   // One of them is called, once for each start(), unless stop() was called before. May start again, but not
   // destroy the connector.
   struct Ends {
      std::function< void( Connected ) > connected;
      std::function< void( std::string const & why ) > failed;
   };

   // `loop` must outlive this.
   Connector( Valen::Linux::EventLoop & loop, Address address, Ends ends );
   ~Connector();
   Connector( Connector const & ) = delete;
   Connector & operator=( Connector const & ) = delete;

   Address const & address() const noexcept { return address_; }

   // Reads the password, resolves the name, and tries its addresses one after the other. No effect while it is
   // running. Calls no end before the next turn of the loop.
   void start();
   // Gives up. The next start() begins with the name's next address.
   void stop() noexcept;

 private:
   struct SocketAddress {
      sockaddr_storage storage{};
      socklen_t size = 0;
   };
   // What the thread finds out. Plain values.
   struct Found {
      std::vector< SocketAddress > addresses;
      std::string password;
      std::string error; // empty when it was found
   };
   enum class State : U8 { stopped, preparing, connecting };

   static Found prepare( Address const & address );
   static Found resolve( Address const & address, int flags );

   bool needsThread() const;
   void prepared( Found found );
   void connectNext();
   void ready();
   void fail( std::string const & why );

   Valen::Linux::EventLoop & loop_;
   Address const address_;
   Ends const ends_;
   State state_ = State::stopped;
   Found found_;
   std::size_t next_ = 0; // index of the address to try, modulo their number; kept between attempts
   std::size_t tried_ = 0;
   Valen::Linux::Fd socket_;
   bool jobRuns_ = false;
   std::optional< Valen::Linux::Worker > worker_; // made when it is needed first
   Gantry::PostedWork posted_;
};

} // namespace Database
