// The frames of agents in the state store: the only writer of their directories.
//
//   - A message is filled before it is published and never emptied; a changed one is a new entity.
//   - The directory of an agent has exactly one message directory, "messages".
#pragma once

#include "settings/Config.h"
#include "valend/store/Store.h"

#include <map>
#include <set>
#include <string>

namespace Valend {

class FrameEntries {
 public:
   using ByAgent = std::map< std::string, Settings::Frames >; // of one interface
   using Agents = decltype( Settings::Config::agents );

   // `agents` is what the store has, and is kept so. Both must outlive this.
   FrameEntries( Store & store, Agents & agents ) : store_( store ), agents_( agents ) {}

   // Whether the interface has frames, and none of their agents is to have any for it.
   bool losesAll( std::string const & interface, ByAgent const & wanted ) const;
   // Removes the interface's frames of the agents that are to have none for it. An agent that has none left goes, unless
   // it is one of `kept`.
   void remove( std::string const & interface, ByAgent const & wanted, Agents const & kept );
   // Adds the interface's frames, where they differ.
   void add( std::string const & interface, ByAgent const & wanted );

   // Adds an agent without frames, unless it is there.
   void agentAdd( std::string const & agent );
   // Removes an agent that has no frames.
   void agentDel( std::string const & agent );

 private:
   Store & store_;
   Agents & agents_;
   std::map< std::string, std::set< std::string > > agentsOf_; // by interface
};

} // namespace Valend
