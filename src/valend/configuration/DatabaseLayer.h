// What a database adds to the configuration of the files, and the frames that agents have there.
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
// Until the first complete(), the entities that the previous run has kept are active (DatabaseFile.h), and nothing that
// is read of the configuration is applied: then all of it replaces what was kept, in one go. After that, a loss of
// the server changes nothing here.
//
// From the mirror of the database it needs:
//   - entityIs() and entityGone() for the keys that begin with "config:" and "frames:", from the loop, in any order;
//     complete() when everything was read once. After a reconnect, entityGone() for what has gone meanwhile.
//   - whether keys exist that frames name as their lease: see leaseWantedIs(). These have no prefix.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/configuration/Configurator.h"
#include "valend/configuration/DatabaseFrames.h"

#include <chrono>
#include <functional>
#include <string>

namespace Valend {

class DatabaseLayer {
 public:
   // How long changes are collected.
   static constexpr std::chrono::milliseconds collecting{ 5 };

   // All must outlive this. It takes Configurator::layeredIs().
   DatabaseLayer( Configurator & configurator, Publications & publications, DatabaseFile & file,
                  Gantry::WorkQueue & work, Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~DatabaseLayer();
   DatabaseLayer( DatabaseLayer const & ) = delete;
   DatabaseLayer & operator=( DatabaseLayer const & ) = delete;

   // `rejected` is told why a value is not taken, and with an empty text when that is over.
   using Rejected = std::function< void( std::string const & key, std::string const & why ) >;
   void rejectedIs( Rejected rejected );
   // `wanted` is told the keys of which leaseIs() is to say whether they exist: at once, at each change, and after a
   // reconnect, until they are no longer wanted.
   using LeaseWanted = std::function< void( std::string const & key, bool wanted ) >;
   void leaseWantedIs( LeaseWanted wanted );
   // `settled` is called whenever everything that was told so far is active or rejected, but not before the first
   // complete().
   void settledIs( std::function< void() > settled ) { settled_ = std::move( settled ); }
   // `changed` is told what a change of entities has changed in the configuration, a line each.
   void changedIs( std::function< void( std::vector< std::string > const & changes ) > changed ) {
      changed_ = std::move( changed );
   }

   // Takes over what the previous run has kept of the database `origin` (DatabaseFile::originOf()). Call it after the
   // functions above, and before Configurator::start().
   void resume( std::string const & origin );

   void entityIs( std::string const & key, Settings::Fields const & fields );
   void entityGone( std::string const & key );
   // Everything was read once.
   void complete();
   void leaseIs( std::string const & lease, bool exists ) { frames_.leaseIs( lease, exists ); }
   // Whether everything that was told is active or rejected.
   bool settled() const noexcept { return complete_ && changes_.empty() && !busy_; }

   // What is told from now on is of the database `origin`, and all of it is told: what is active stays until complete().
   void restart( std::string const & origin );
   // There is no database any more: no entity is there.
   void clear();

   // A step of each application of a configuration.
   Slices::Step configChangedStep() { return frames_.configChangedStep(); }

 private:
   void collect();
   void apply();
   void layered( Configurator::Layered const & layered );
   void ended();

   Configurator & configurator_;
   DatabaseFile & file_;
   DatabaseFrames frames_;
   Rejected rejected_;
   std::function< void() > settled_;
   std::function< void( std::vector< std::string > const & ) > changed_;
   bool complete_ = false;
   bool replace_ = true;             // `changes_` are all entities
   bool busy_ = false;               // entities are being settled
   Settings::EntityChanges changes_; // that are not being settled yet
   Gantry::Timer timer_;
   Slices slices_;
};

} // namespace Valend
