// The frames that agents have published over the API. They are applied together with those of the
// configuration files.
//
// The configuration takes precedence: while it has an agent of the same name, or does not have the
// interface, published frames are kept but not active. While an agent has frames that are bound to a
// connection, only that client can publish under the agent's name.
//
// Frames that agents have put in a database are published with the lifetime "database". They may be there before their
// interface is. While the database has frames of an agent for an interface, those that were published over the API
// are kept but not active.
//
// What valend learns is published in the same way, with the lifetime "learned", under names that are reserved for
// it (Settings::learnedAgents). It is not saved, and clients cannot withdraw it.
#pragma once

#include "valend/base/EnumTexts.h"
#include "valend/base/Slices.h"
#include "valend/configuration/Feeder.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Valend {

class Publications {
 public:
   enum class Lifetime : U8 {
      kept,       // until they are withdrawn
      connection, // until they are withdrawn or the client disconnects
      learned,    // until valend, which has learned them, withdraws them
      database,   // until they are withdrawn there
   };
   friend constexpr auto enumTexts( Lifetime ) {
      return std::to_array< EnumText< Lifetime > >( { { Lifetime::kept, "kept" },
                                                      { Lifetime::connection, "connection" },
                                                      { Lifetime::learned, "learned" },
                                                      { Lifetime::database, "database" } } );
   }
   static constexpr U64 self = 0; // as a client: valend itself

   struct Message {
      std::string agent;
      std::string interface;
      Settings::Frames frames;
      Lifetime lifetime;
      U64 client;             // that published it
      std::string owner = {}; // for people: whose frames they are, of those of a database
   };

   static constexpr std::size_t maxFrameBytes = 65535;
   static constexpr std::size_t maxAgentBytes = 255; // of a name
   // The memory that all published frames together may take. A frame is held twice, here and in the state store, each
   // time with what surrounds it; so is the entry of an agent for an interface.
   static constexpr std::size_t maxMemory = 128u << 20;
   static constexpr std::size_t frameMemory = 128;  // besides twice its bytes
   static constexpr std::size_t entryMemory = 2048; // of an agent for an interface
   static std::size_t memoryOf( Settings::Frames const & frames ) noexcept;

   // What an agent has published with the lifetime "kept" for an interface from now on; no frames: nothing.
   using Kept = std::function< void( std::string const & agent, std::string const & interface,
                                     Settings::Frames const & frames ) >;

   // `feeder` and `work` must outlive this. `kept` (may be empty) is called with each change.
   Publications( Feeder & feeder, Gantry::WorkQueue & work,
                 Quill::Ptr< Gantry::TaskScheduler > scheduler, Kept kept = {} );
   ~Publications();
   Publications( Publications const & ) = delete;
   Publications & operator=( Publications const & ) = delete;

   // `changed` (may be empty) is called when a client has changed what is published for an interface.
   void changedIs( std::function< void( std::string const & interface ) > changed ) {
      changed_ = std::move( changed );
   }

   // Restores what the previous run kept. Called before the first configIs().
   void resume( std::vector< Message > messages );

   // Applies the configuration of the files, together with what is published, in one go.
   void configIs( Settings::Config config );
   // Begins to do so: see Feeder::begin(). From now on calls are answered by that configuration.
   void begin( PlanPtr plan );
   // The configuration of the files alone.
   Settings::Config const & config() const noexcept { return plan_->config(); }

   // The bytes of the frame `hex`. Throws Refusal "BadFrame"; `number` is the frame's number in the
   // error.
   static std::string frameOf( std::string const & hex, std::size_t number );

   // Publishes `message`, which replaces what its agent has published for its interface. Throws
   // Refusal "NoSuchInterface", "AgentExists", "BadName", "NoFrames" or "TooMuch", and changes nothing
   // then. A reserved name is bad without the lifetime "learned", and any other name with it. With the lifetime
   // "database", the interface need not exist, and the configuration may have the agent. It takes the time for one
   // interface, however much else is published.
   void publish( Message message );
   // Withdraws what the agent has published for the interface, but not what it has in the database, and returns its
   // lifetime. Throws Refusal "NoSuchMessages" or "AgentExists".
   Lifetime withdraw( std::string const & agent, std::string const & interface, U64 client );
   // Withdraws what the agent had in the database for the interface.
   void withdrawOfDatabase( std::string const & agent, std::string const & interface );
   // Withdraws what was bound to the client's connection, one message after the other in later turns of the loop. The
   // names of its agents are free at once.
   void clientGone( U64 client );

   // Whether anything is bound to the client's connection.
   bool isNeeded( U64 client ) const noexcept { return boundTo_.contains( client ); }
   // What is published, by agent, then interface; what is published over the API before what is in the database.
   struct Key {
      std::string agent;
      std::string interface;
      bool ofDatabase = false;
      auto operator<=>( Key const & ) const = default;
   };
   using Messages = std::map< Key, Message >;
   Messages const & messages() const noexcept { return messages_; }
   // The same for one interface.
   std::vector< Message const * > messagesFor( std::string const & interface ) const;
   // Whether the message is applied now: see above.
   bool isActive( Message const & message ) const;
   // See maxMemory.
   std::size_t memory() const noexcept { return memory_; }

 private:
   static Key keyOf( Message const & message );
   void requireName( std::string const & agent, U64 client ) const;
   bool withdrawNext( U64 gone );
   void framesChanged( std::string const & interface, Lifetime lifetime );
   void put( Message message );
   void remove( Messages::iterator message );
   std::map< std::string, Settings::Frames > activeFrames( std::string const & interface ) const;

   Feeder & feeder_;
   Kept const kept_;
   std::function< void( std::string const & interface ) > changed_;
   PlanPtr plan_; // never null
   Messages messages_;
   std::size_t memory_ = 0;
   std::map< std::string, std::set< Key > > keysOf_; // by interface
   std::map< U64, std::set< Key > > boundTo_;        // by client: what its connection holds
   std::map< std::string, std::map< U64, std::size_t > >
      clientsOf_;         // by agent: how many each holds
   std::set< U64 > gone_; // clients of which something is still to be withdrawn
   Slices slices_;
};

} // namespace Valend
