// The commands that work for many hosts by their database. Each reads what it needs, prints, and returns what
// valenctl exits with; a host that is stale is an error of the command, but does not keep it from the others. They
// throw NoDatabase, NoSuchHost, NoSuchChoice, Interrupted, and std::runtime_error for what the server rejects.
#pragma once

#include "valenctl/database/LinkRequests.h"
#include "valenctl/text/Exit.h"
#include "valenctl/text/Output.h"

namespace Valenctl {

// What all of them work with. Keeps references.
struct HostSession {
   DatabaseClient & client;
   Output const & output;
   std::vector< std::string > hosts; // their names; empty: all
   bool chosen = true;               // the operator has said which
};

// The status of all interfaces of the hosts, or of those with this name.
Exit statusOfHosts( HostSession const & session, std::string const & interface );

struct HistoryChoice {
   std::vector< std::string > interfaces; // empty: all
   std::optional< std::int64_t > last;    // of all hosts together
   std::chrono::milliseconds since{ 0 };  // since 1970
};
Exit historyOfHosts( HostSession const & session, HistoryChoice const & choice );

// Until Ctrl-C, or until the output is closed.
Exit watchHosts( HostSession const & session, std::string const & interface );

// Until the interface is in a state (ready, up, down, idle) on all of the hosts; at most for the client's timeout.
Exit waitForHosts( HostSession const & session, std::string const & interface,
                   std::string const & until );

// Shuts interfaces down, or enables them. `selection` is as choose() takes it. `quiet`: prints errors only.
Exit requestLinks( HostSession const & session, Json const & selection, LinkOrder const & order,
                   bool quiet );

// Says which hosts are stale, and what to do.
Exit reportStale( Output const & output, std::vector< Host > const & hosts );

} // namespace Valenctl
