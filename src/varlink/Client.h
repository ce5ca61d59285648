// The client's end of the agent's control API: calls over a Unix socket, one at a time.
#pragma once

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace Varlink {

using Json = nlohmann::json;

// Nobody answers at the socket, or the connection broke.
class NoService : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The agent did not answer in time.
class TimedOut : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

// The agent refused a call.
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
   // Takes an answer, and says whether to wait for further ones.
   using Reply = std::function< bool( Json const & parameters ) >;

   // Connects. `interface` is the one whose methods are called: "org.example.service". Throws NoService.
   Client( std::string const & socket, std::string interface );
   ~Client();
   Client( Client const & ) = delete;
   Client & operator=( Client const & ) = delete;

   // How long each answer is waited for; 0 is for ever.
   void patienceIs( std::chrono::milliseconds patience ) noexcept { patience_ = patience; }

   // Calls a method of the interface and returns its answer. Throws Refused, TimedOut and
   // NoService.
   Json call( std::string const & method, Json const & parameters );
   // Calls a method that answers more than once, until it has no more or `reply` wants none.
   void callMore( std::string const & method, Json const & parameters, Reply const & reply );

   // Keeps the connection until the agent hangs up, and throws NoService then.
   void waitForEnd();

 private:
   void send( Json const & message );
   Json receive();
   void waitFor( short event );

   int fd_ = -1;
   std::string const socket_;
   std::string const interface_;
   std::chrono::milliseconds patience_{ 10'000 };
   std::string buffer_;
};

} // namespace Varlink
