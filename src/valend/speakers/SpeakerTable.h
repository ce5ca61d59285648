// What the speakers on the devices of interfaces said last. A speaker is known while its neighbors believe in it: from
// its frame until it says goodbye, or until its hold time is over.
//
// Anybody who may send on a device can invent speakers, so only so many of a protocol are known of each device: the
// one that was heard least recently makes room.
#pragma once

#include "derivation/Heard.h"
#include "egress/Mutes.h"
#include "platform/gantry/TaskScheduler.h"
#include "valend/kernel/LinkPort.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Valend {

class SpeakerTable {
 public:
   static constexpr std::size_t mostOfAProtocol = 16; // of a device
   static constexpr std::size_t mostParts = 64;       // of a speaker

   struct Part {
      Derivation::Heard heard;
      Gantry::Time at{};
   };
   struct Speaker {
      Egress::Speaker id{};
      std::map< std::string, Part > parts; // never empty
      Gantry::Time due{};                  // when a part of it may expire, at the earliest
      // The part that was heard last.
      Part const & latest() const noexcept;
   };
   using Speakers = std::vector< Speaker >;

   // What was heard of a protocol besides known speakers.
   struct Counters {
      std::map< std::string, U64 > malformed; // by reason
      U64 madeRoom = 0;  // speakers that were forgotten because there were too many
      LinkPlace crowded; // where that happened last
   };

   // When neighbors forget what they learned from it.
   static Gantry::Time freshUntil( Part const & part ) noexcept;

   // A frame was heard. Returns whether the goodbyes of the device changed.
   bool heard( LinkPlace const & place, Egress::Speaker const & id, Derivation::Heard const & heard,
               Gantry::Time now );
   // All that the speaker says now. No parts: it has left. Returns whether the goodbyes of the device changed.
   bool says( LinkPlace const & place, Egress::Speaker const & id,
              std::vector< Derivation::Heard > const & parts, Gantry::Time now );
   void malformed( Derivation::Malformed const & frame );

   // Forgets what is no longer fresh, and returns whose goodbyes changed by that.
   std::vector< LinkPlace > expire( Gantry::Time now );
   // When expire() has something to do at the earliest; never, if nothing is known.
   Gantry::Time nextExpiry() const noexcept;
   // The device is gone, or is no longer an interface's.
   void forget( LinkPlace const & place );

   // Those of a device, in the order in which they were first heard.
   Speakers const & known( LinkPlace const & place ) const noexcept;
   // Null if it is not known.
   Speaker const * find( LinkPlace const & place, Egress::Speaker const & id ) const noexcept;
   // By protocol.
   std::map< std::string, Counters > const & counters() const noexcept { return counters_; }
   std::size_t count() const noexcept;
   // How many speakers of each protocol are known.
   std::map< std::string, U64 > byProtocol() const;

 private:
   struct Due {
      LinkPlace place;
      Egress::Speaker id;
   };

   bool left( LinkPlace const & place, Egress::Speaker const & id, std::string const & part );
   Speaker & speaker( LinkPlace const & place, Egress::Speaker const & id );
   void makeRoom( LinkPlace const & place, U16 kind );
   void dueIs( LinkPlace const & place, Speaker & speaker, Gantry::Time due );
   void dueDel( LinkPlace const & place, Speaker const & speaker );

   std::map< LinkPlace, Speakers > devices_;
   std::multimap< Gantry::Time, Due > due_; // one of each speaker, at its `due`
   std::map< std::string, Counters > counters_;
};

} // namespace Valend
