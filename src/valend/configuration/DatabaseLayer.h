// What a database adds to the configuration of the files, and the frames that agents publish there.
//
// An entity is one hash: its key, without the prefix of this valend, and its fields.
//   config:delay              the delay of shutdowns
//   config:vrf:NAME           a VRF, with the keys of an item of the files, but for its name
//   config:interface:NAME     an interface, the same
//   frames:AGENT:INTERFACE    frames: see DatabaseFrames.h
// The rule by which those of "config:" settle with each other and with the files is in settings/Overlay.h. Other keys
// are ignored.
//
// What has changed is collected for a moment, and applied together as a reload applies a configuration: it is settled in
// the Configurator's thread, and applied in slices. What changes meanwhile is applied after that. The files are not read
// again. Frames are published one by one, at once.
//
// Until the first complete(), what the previous run has kept is active (DatabaseFile.h), and nothing of what
// is read is applied: then it replaces what was kept, in one go. After that, a loss of the server changes nothing here.
//
// From the mirror of the database it needs:
//   - entityIs() and entityGone() for the keys that begin with "config:" and "frames:", from the loop, in any order;
//     complete() when everything was read once. After a reconnect, entityGone() for what has gone meanwhile.
//   - whether keys exist that frames name as their lease: see leaseWantedIs(). These have no prefix.
#pragma once

#include "platform/gantry/Timer.h"
#include "settings/Overlay.h"
#include "valend/configuration/Configurator.h"
#include "valend/configuration/DatabaseFile.h"
#include "valend/configuration/DatabaseFrames.h"

#include <chrono>
#include <functional>
#include <string>

namespace Valend {

class DatabaseLayer {
 public:
   using Fields = Settings::Fields;

   // How long changes are collected.
   static constexpr std::chrono::milliseconds collecting{ 5 };

   // All must outlive this.
   DatabaseLayer( Configurator & configurator, Publications & publications, DatabaseFile & file,
                  Gantry::WorkQueue & work, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~DatabaseLayer();
   DatabaseLayer( DatabaseLayer const & ) = delete;
   DatabaseLayer & operator=( DatabaseLayer const & ) = delete;

   // `rejected` is told why a value is not taken, and with an empty text when that is over. Call it before anything
   // else.
   using Rejected = std::function< void( std::string const & key, std::string const & why ) >;
   void rejectedIs( Rejected rejected );
   // `wanted` is told the keys of which the database is to say, with leaseIs(), whether they exist: at once, and at each
   // change, also after a reconnect, until they are no longer wanted.
   using LeaseWanted = std::function< void( std::string const & key, bool wanted ) >;
   void leaseWantedIs( LeaseWanted wanted );

   void entityIs( std::string const & key, Fields const & fields );
   void entityGone( std::string const & key );
   // Everything was read once.
   void complete();
   void leaseIs( std::string const & key, bool exists );

   // What is told from now on is of another server or prefix: what was read before stays until complete().
   void restart();
   // There is no database any more.
   void clear();

 private:
   void changed();
   void apply();

   Configurator & configurator_;
   DatabaseFrames frames_;
   bool complete_ = false;
   Settings::EntityChanges
      changes_; // that are not applied yet; before the first complete(), all entities
   Gantry::Timer timer_;
};

} // namespace Valend
