// QuillShoal: mounts of entities that are published at a path.
#pragma once

#include "platform/orrery/EntityManager.h"

namespace QuillShoal {

// How an entity is mounted.
enum class MountType : U8 {
   reader = 3, // read only, kept current by its publisher
};

struct MountInfo {
   MountType mountType;
};

// Mounts and unmounts through one entity manager. A mount outlasts this object: it stays until it
// is unmounted, by this object or another.
class Mount final : public Quill::PtrInterface {
   QUILL_TRACKED( QuillShoal::Mount )
 public:
   explicit Mount( Quill::Ptr< Orrery::EntityManager > entityManager );

   // Makes the mount ready. Must come before anything else.
   void handleInitialized();

   // Mounts the entity of type `typeName` (qualified) published at `path`. Harmless when it is
   // mounted already. A path with nothing published stays empty.
   void doMount( Quill::String const & path, char const * typeName, MountInfo const & info );
   // No effect on a path that is not mounted.
   void doUnmount( Quill::String const & path );
   // The entity mounted at `path`, of any type; null if nothing is mounted there.
   Quill::Ptr< Quill::Entity > getEntity( Quill::String const & path ) const;

 private:
   Quill::Ptr< Orrery::EntityManager > const entityManager_;
   bool initialized_ = false;
};

} // namespace QuillShoal
