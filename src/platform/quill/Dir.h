// Quill::Dir: an entity whose attribute is a collection of child entities by name.
//
// An entry can exist before its entity is instantiated, so readers test both: `entryHas( name )`,
// then `entry( name )` for the entity, null until it is there.
#pragma once

#include "platform/quill/Attributes.h"

namespace Quill {

class Dir final : public Entity {
   QUILL_ENTITY( Quill::Dir )
 public:
   QUILL_ATTRIBUTE_TAG( entry, MapField< Name, Ptr< Entity > > )
   using Entries = Map< Name, Ptr< Entity > >;

   Dir() = default;
   ~Dir() override;

   Entries const & entry() const noexcept { return entry_; }
   U32 entrys() const noexcept { return entry_.count(); }
   bool entryHas( Name const & name ) const noexcept { return entry_.has( name ); }
   // The instantiated entity; null when the entry is absent or not yet instantiated.
   Ptr< Entity > entry( Name const & name ) const noexcept {
      auto const * const entity = entry_.find( name );
      return entity ? *entity : nullptr;
   }

   // Adds the entry without its entity; no effect when it exists.
   void entryIs( Name name );
   // Adds the entry if absent and instantiates it, or exchanges its entity. This becomes the
   // entity's parent.
   void entryIs( Name name, Ptr< Entity > entity );
   void entryDel( Name name );
   void entryDelAll();

 private:
   Entries entry_;
};

} // namespace Quill
