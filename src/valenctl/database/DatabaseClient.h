// One connection to the database, and the loop that it runs on. Blocks, as commands of operators may.
#pragma once

#include "database/Connection.h"
#include "linux/EventLoop.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace Valenctl {

// The database cannot be reached, or not any more.
class NoDatabase : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The operator has pressed Ctrl-C, or the process received SIGTERM.
class Interrupted : public std::runtime_error {
 public:
   Interrupted() : runtime_error( "interrupted" ) {}
};

class DatabaseClient {
 public:
   using Milliseconds = std::chrono::milliseconds;
   using Command = std::vector< std::string >; // of the server, with its arguments

   // `url` as Database::Address has it. `timeout`: how long to wait for a connection and for answers; 0 waits
   // indefinitely. Connects to nothing yet. Throws Database::InvalidAddress.
   DatabaseClient( std::string const & url, Milliseconds timeout );

   // Sends the commands in one stream, and returns their replies in the same order. Connects, also after a loss.
   // Throws NoDatabase, also if no reply comes within the timeout; std::runtime_error if the server answers one of
   // them with an error; and Interrupted.
   std::vector< Database::Reply > ask( std::vector< Command > const & commands );
   Database::Reply askOne( Command const & command );

   // Throws Interrupted.
   void pause( Milliseconds duration );

   // What was given, without a password.
   std::string const & url() const noexcept { return url_; }
   Milliseconds timeout() const noexcept { return timeout_; }

 private:
   using Clock = std::chrono::steady_clock;

   void turnUntil( Clock::time_point end );
   Clock::time_point deadline() const;
   void connect();

   std::string const url_;
   Milliseconds const timeout_;
   Valen::Linux::EventLoop loop_;
   bool interrupted_ = false;
   std::string lost_; // why there is no connection
   Database::Connection connection_;
};

} // namespace Valenctl
