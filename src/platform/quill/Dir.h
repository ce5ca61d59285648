// Quill::Dir: an entity whose attribute is a collection of child entities by name.
//
// An entry can exist before its entity is instantiated, so readers test both: `entryHas( name )`,
// then `entry( name )` for the entity, null until it is there.
#pragma once

#include "platform/quill/Attributes.h"

namespace Quill {

class Dir final : public Entity {
   QUILL_TRACKED( Quill::Dir )
 public:
   using Self = Dir;
   using Notifiee = NotifieeOf< Dir >;
   using NotifieeConst = NotifieeOf< Dir const >;
   static constexpr char const * quillTypeName = "Quill::Dir";
   static constexpr int quillFirstLine = __LINE__;
   using Entries = Map< Name, Ptr< Entity > >;

   Dir() = default;
   ~Dir() override;

   static EntityType const & staticType() { return entityTypeOf< Dir >(); }
   EntityType const & entityType() const override { return staticType(); }

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

   struct entryAttr;
   QUILL_ATTRIBUTE_TAG( map, Ptr< Entity >, Name, entry )
   struct entryAttr : entryAttrBase {};

 private:
   Entries entry_;
};

} // namespace Quill

QUILL_ENTITY_TABLES_ELSEWHERE( Quill::Dir )
