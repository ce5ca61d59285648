// What a command works with: the connection to valend, and where its output goes.
#pragma once

#include "valenctl/text/Exit.h"
#include "valenctl/text/JsonFields.h"
#include "valenctl/text/Output.h"
#include "varlink/Client.h"

#include <chrono>
#include <iosfwd>
#include <optional>

namespace Valenctl {

// How valend is reached.
struct Connection {
   std::string socket;
   std::chrono::milliseconds timeout; // for an answer; 0 waits indefinitely
};

class Session {
 public:
   // Connects to nothing yet.
   Session( Connection connection, Output const & output );

   // The connection to valend, made by the first call. Throws Varlink::NoService.
   Varlink::Client & client();
   // Calls a method of valend and returns the answer's parameters. Throws what Varlink::Client does.
   Json call( std::string const & method, Json const & parameters = Json::object() );

   std::string const & socket() const noexcept { return connection_.socket; }
   // How long the operator wants to wait for an answer; 0: indefinitely.
   std::chrono::milliseconds timeout() const noexcept { return connection_.timeout; }
   // How long the client waits for each answer from now on; 0: indefinitely.
   std::chrono::milliseconds answerTimeout() const noexcept { return answerTimeout_; }
   void answerTimeoutIs( std::chrono::milliseconds timeout );

   bool json() const noexcept { return output_.json(); }
   Terminal const & terminal() const noexcept { return output_.terminal; }
   Palette const & palette() const noexcept { return output_.terminal.palette; }
   std::ostream & out() const noexcept { return output_.out; }
   std::ostream & err() const noexcept { return output_.err; }

   // Prints an answer as JSON if the operator wants that; else `text`.
   void print( Json const & answer, std::string const & text );
   // Prints one line of JSON and flushes it.
   void printLine( Json const & json );

 private:
   Connection const connection_;
   Output const output_;
   std::chrono::milliseconds answerTimeout_;
   std::optional< Varlink::Client > client_;
};

// The parameters of a method about one interface, or about all of them when the name is empty.
Json interfaceParameter( std::string const & interface );

} // namespace Valenctl
