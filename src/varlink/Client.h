// The client's end of a service: calls over a Unix socket, one at a time. Blocks.
#pragma once

#include "linux/Fd.h"
#include "varlink/Framing.h"

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

namespace Varlink {

// No service could be reached, or the connection broke.
class NoService : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The service did not answer in time.
class TimedOut : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The service answered with an error.
class Refused : public std::runtime_error {
 public:
   // `name`: the error's qualified name. `parameters`: what came with it.
   Refused( std::string name, std::string const & text, Json parameters = Json::object() )
       : runtime_error( text ), name_( std::move( name ) ), parameters_( std::move( parameters ) ) {
   }
   std::string const & name() const noexcept { return name_; }
   Json const & parameters() const noexcept { return parameters_; }

 private:
   std::string name_;
   Json parameters_;
};

class Client {
 public:
   // Receives an answer, and returns whether to wait for further ones.
   using Reply = std::function< bool( Json const & parameters ) >;

   // Connects. `interface` is the one whose methods are called: "org.example.service". `service` is
   // what the texts of errors call the other end. Throws NoService.
   Client( std::string const & socket, std::string interface, std::string service = "the service" );

   // How long each answer is waited for; 0 waits indefinitely.
   void timeoutIs( std::chrono::milliseconds timeout ) noexcept { timeout_ = timeout; }

   // Calls a method of the interface and returns its answer. Throws Refused, TimedOut and
   // NoService.
   Json call( std::string const & method, Json const & parameters );
   // Calls a method that answers more than once, until it has no more or `reply` wants none.
   void callMore( std::string const & method, Json const & parameters, Reply const & reply );

   // Keeps the connection until the service closes it, and throws NoService then.
   void waitForEnd();

 private:
   void send( Json const & message );
   Json receive();
   std::string receiveText();
   void waitFor( short event );
   NoService closed( std::string const & otherwise ) const;

   std::string const interface_;
   std::string const service_;
   Valen::Linux::Fd const fd_;
   Framing in_;
   std::chrono::steady_clock::time_point const connected_ = std::chrono::steady_clock::now();
   bool received_ = false; // anything
   std::chrono::milliseconds timeout_{ 10'000 };
};

} // namespace Varlink
