// The frames that agents have published over the API. They are applied together with those of the
// configuration files.
//
// The configuration takes precedence: while it has an agent of the same name, or does not have the
// interface, published frames are kept but not active. While an agent has frames that are bound to a
// connection, only that client can publish under the agent's name.
#pragma once

#include "valend/base/EnumTexts.h"
#include "valend/configuration/Feeder.h"

#include <functional>
#include <string>
#include <vector>

namespace Valend {

class Publications {
 public:
   enum class Lifetime : U8 {
      kept,       // until they are withdrawn
      connection, // until they are withdrawn or the client disconnects
   };
   friend constexpr auto enumTexts( Lifetime ) {
      return std::to_array< EnumText< Lifetime > >(
         { { Lifetime::kept, "kept" }, { Lifetime::connection, "connection" } } );
   }

   struct Message {
      std::string agent;
      std::string interface;
      Settings::Frames frames;
      Lifetime lifetime;
      U64 client; // that published it
   };

   static constexpr std::size_t maxFrameBytes = 65535;
   static constexpr std::size_t maxBytes = 64u << 20; // of all published frames together
   static constexpr std::size_t maxAgentBytes = 255;  // of a name

   // `feeder` must outlive this. `changed` (may be empty) is called with all published messages after
   // each change.
   using Changed = std::function< void( std::vector< Message > const & ) >;
   explicit Publications( Feeder & feeder, Changed changed = {} )
       : feeder_( feeder ), changed_( std::move( changed ) ) {}

   // Restores what the previous run kept. Called before the first configIs().
   void resume( std::vector< Message > messages );

   // Applies the configuration of the files, together with what is published.
   void configIs( Settings::Config config );
   // The configuration of the files alone.
   Settings::Config const & config() const noexcept { return config_; }

   // The bytes of the frame `hex`. Throws Refusal "BadFrame"; `number` is the frame's number in the
   // error.
   static std::string frameOf( std::string const & hex, std::size_t number );

   // Publishes `message`, which replaces what its agent has published for its interface. Throws
   // Refusal "NoSuchInterface", "AgentExists", "BadName", "NoFrames" or "TooMuch", and changes nothing
   // then.
   void publish( Message message );
   // Withdraws what the agent has published for the interface. Throws Refusal "NoSuchMessages" or
   // "AgentExists".
   void withdraw( std::string const & agent, std::string const & interface, U64 client );
   // Withdraws what was bound to the client's connection.
   void clientGone( U64 client );

   // Whether anything is bound to the client's connection.
   bool isNeeded( U64 client ) const noexcept;
   // What is published, sorted by agent, then interface.
   std::vector< Message > const & messages() const noexcept { return messages_; }
   // Whether the configuration lets the message be applied now.
   bool isActive( Message const & message ) const;

 private:
   std::vector< Message >::iterator find( std::string const & agent,
                                          std::string const & interface );
   void requireName( std::string const & agent, U64 client ) const;
   void add( Message message );
   void changed();
   void apply();

   Feeder & feeder_;
   Changed const changed_;
   Settings::Config config_;
   std::vector< Message > messages_;
};

} // namespace Valend
