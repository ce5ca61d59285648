// The options that all commands share.
#pragma once

#include "valenctl/command/Session.h"

#include <chrono>
#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

struct Options {
   Options();

   std::string socket;         // valend's
   std::string database;       // the URL of the database of many hosts; empty: use the socket
   std::string hosts;          // of the database: "rtr1,rtr2", or "all"; empty: not given
   double timeoutSeconds = 10; // for an answer; 0 waits indefinitely
   bool json = false;          // print answers as JSON

   // The names of the hosts; none: all.
   std::vector< std::string > hostNames() const;
   std::chrono::milliseconds timeout() const;
};

// Adds the options to `app`, bound to `options`, which must outlive it.
void addOptions( CLI::App & app, Options & options );

// How the failure of a command line that does not parse is printed: JSON if it has --json.
Format formatIn( std::vector< std::string > const & words );

} // namespace Valenctl
