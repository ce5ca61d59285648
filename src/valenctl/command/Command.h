// A command of valenctl, and the row that registers it.
#pragma once

#include "valenctl/text/Exit.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

class Session;
struct HostSession;

// One command. It holds the values of its own options.
class Command {
 public:
   Command() = default;
   virtual ~Command() = default;
   Command( Command const & ) = delete;
   Command & operator=( Command const & ) = delete;

   // Adds the command's arguments and options to `app`, bound to members of this object. An argument
   // called INTERFACE, VRF, AGENT or FILE, or an option of such a type, is completed as that, a DEVICE
   // as one of valend's interfaces, a DEV or NETNS as one of this machine; an option whose type is
   // "a|b|c" as one of these words.
   virtual void addOptions( CLI::App & ) {}

   // Executes the command with the options that were parsed. Throws UsageError for options that do
   // not fit together, what Session::client() and Varlink::Client throw, and std::runtime_error for
   // any other failure; the caller prints it.
   virtual Exit run( Session & session ) = 0;

   // The same for the hosts of a database, with --database. Throws UsageError unless the command can do that, and
   // what the functions of HostCommands.h throw.
   virtual Exit runForHosts( HostSession const & session );
};

// Registers a command, or a group that only has commands of its own.
struct CommandRow {
   std::string name; // as typed: "status", "messages add"; what it is below comes first
   std::string help; // one sentence or two, without a period at the end
   std::function< std::unique_ptr< Command >() > make; // empty: a group
   std::string footer = {};                            // printed below the help
};

// Makes a command of class T, for a row.
template < class T > std::unique_ptr< Command > make() {
   return std::make_unique< T >();
}

} // namespace Valenctl
