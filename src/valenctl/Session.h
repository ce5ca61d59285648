// One command's talk with the agent. Data goes to `out`, words to `err`.
#pragma once

#include "valenctl/Options.h"
#include "valenctl/Terminal.h"
#include "varlink/Client.h"

#include <iosfwd>

namespace Valenctl {

using Varlink::Json;

class Session {
 public:
   // Connects. All must outlive the session. Throws Varlink::NoService.
   Session( Options const & options, Terminal const & terminal, std::ostream & out,
            std::ostream & err );

   // Carries the command out. Throws what Varlink::Client throws.
   Exit run();

 private:
   // LinkCommands.cpp
   Exit shutdown();
   Exit enable();
   // WatchCommand.cpp
   Exit watch();
   // Session.cpp
   Exit status();
   Exit list();
   Exit history();
   Exit explain();
   Exit wait();
   Exit messagesList();
   Exit messagesAdd();
   Exit messagesRemove();
   Exit trace( bool follow );
   Exit traceLevels();
   Exit metrics();
   Exit show();

   std::chrono::milliseconds timeout() const;
   Json interfaceParameter() const; // of commands that may be about one
   Json wantedParameters() const;   // of commands that may be about several
   std::vector< std::string > framesGiven() const;
   // Says the step of a shutdown, and what it makes of the command.
   Exit tellStep( Json const & step );
   // Prints the answer as it came, when that is wanted; else as `text` has it.
   Exit print( Json const & answer, std::string const & text );
   void printLine( Json const & json );

   Options const & options_;
   Terminal const & terminal_;
   std::ostream & out_;
   std::ostream & err_;
   Varlink::Client client_;
};

} // namespace Valenctl
