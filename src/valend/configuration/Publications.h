// The frames that agents have published over the API, beside those of the configuration file: what
// is in force is both together.
//
// An agent's name belongs to the configuration, when that has an agent of the name; else, while
// frames of it are bound to a connection, to that connection. What is published stands back, but is
// not forgotten, while the configuration has an agent of its name or has not its interface.
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
      kept,       // until it is withdrawn
      connection, // or the connection that it came by ends
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
      U64 client; // it came by
   };

   // The longest frame, and all frames that are published, in bytes.
   static constexpr std::size_t maxFrameBytes = 65535;
   static constexpr std::size_t maxBytes = 64u << 20;
   static constexpr std::size_t maxAgentBytes = 255;

   // `feeder` must outlive this. `changed` (may be empty) hears of every change of what is published.
   using Changed = std::function< void( std::vector< Message > const & ) >;
   explicit Publications( Feeder & feeder, Changed changed = {} )
       : feeder_( feeder ), changed_( std::move( changed ) ) {}

   // Takes up what an agent before this one kept. Before the first configuration.
   void resume( std::vector< Message > messages );

   // Puts the file's configuration in force, with what is published.
   void configIs( Settings::Config config );
   // The file's alone.
   Settings::Config const & config() const noexcept { return config_; }

   // The frame that `hex` spells. Throws Refusal "BadFrame"; `number` is what the text calls it.
   static std::string frameOf( std::string const & hex, std::size_t number );

   // Puts `message` in the place of what its agent has published for its interface. Throws Refusal:
   // "NoSuchInterface", "AgentExists", "BadName", "NoFrames", "TooMuch". Then nothing is changed.
   void publish( Message message );
   // Takes away what the agent has published for the interface. Throws Refusal: "NoSuchMessages",
   // "AgentExists".
   void withdraw( std::string const & agent, std::string const & interface, U64 client );
   // Takes away what was bound to the client's connection.
   void clientGone( U64 client );

   // Whether anything is bound to the client's connection.
   bool isNeeded( U64 client ) const noexcept;
   // What is published, by agent, then interface.
   std::vector< Message > const & messages() const noexcept { return messages_; }
   bool inForce( Message const & message ) const;

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
