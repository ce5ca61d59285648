// The entities of a database over the configuration of the files.
//
// An entity replaces the item of the files of the same name, or adds one (settings/Entity.h). What the files may not say,
// an entity may not: the same code reads both.
//
// A value that cannot be taken is rejected alone, and the last value of the entity that was taken stays, if it
// can. Which values are taken is a function of the files, of the present values and of the last ones, and does not
// depend on the order in which the present ones came:
//
//   1. A value that is wrong by itself is rejected.
//   2. Of two items that claim the same (two VRFs one namespace, two interfaces one device of a VRF), the one to which
//      the files give it has it; else the one whose present value claims it before one whose last value does; else the first in
//      order of names. The other one is rejected, and claims what its last value says; if it loses that as well, what
//      the files say of it. As each claim goes to the best, in whatever order they came, the outcome is unique.
//   3. The value of an interface in a VRF that does not exist is rejected. The last value of an interface can be in a
//      VRF whose entity has gone: then the last value of the VRF stays as well, for as long as interfaces that stay
//      are in it. So it does not matter whether a VRF goes first, or its interfaces.
//
// It follows that
//   (a) if no value is rejected, the configuration is that of the files and the present values, whatever came before;
//   (b) with every rejected value replaced by what stays in its place, a fresh start reads the same configuration,
//       byte for byte, and rejects nothing.
#pragma once

#include "settings/Entity.h"

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Settings {

using Entities = std::map< std::string, Fields >; // by key
// Nothing: the entity has gone.
using EntityChanges = std::map< std::string, std::optional< Fields > >;

// A plain value, for one thread at a time.
class Overlay {
 public:
   // Entities after these, in order of keys, are rejected.
   static constexpr std::size_t maxEntities = 100'000;

   // Makes `changes` to the present values.
   void change( EntityChanges changes );
   // The present values are `all`; what was taken before stays as the last values.
   void replace( EntityChanges all );
   // Takes over what a previous run had taken, as present and as last values.
   void resume( Entities taken );

   struct Result {
      Config config;
      Sources sources; // the places of entities are their keys
   };
   // Whether there are no entities, and none stay.
   bool empty() const noexcept { return present_.empty() && last_.empty(); }

   // The configuration from now on.
   Result settle( Config const & files, Sources const & places );

   // Why present values are not taken, by key.
   using Rejected = std::map< std::string, std::string >;
   Rejected const & rejected() const noexcept { return rejected_; }
   // The values that are part of the configuration.
   Entities taken() const;

 private:
   class Settling;
   struct Value {
      Fields fields;
      Entity entity;
   };
   using Values = std::map< std::string, std::shared_ptr< Value const > >; // by key

   Values present_;
   Values last_;                         // that were taken, of entities that are present or stay
   std::map< std::string, bool > taken_; // whether it is the present value; else the last one
   Rejected rejected_;
};

} // namespace Settings
