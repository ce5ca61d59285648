// Orrery: the state store of a process. A tree of entities under one root directory, reached by
// path, and the entities that providers publish at mount paths.
#pragma once

#include "platform/quill/Dir.h"

#include <map>
#include <string>
#include <string_view>

namespace Orrery {

// Publishes entities at the paths below one prefix.
class MountProvider {
 public:
   virtual ~MountProvider() = default;
   // Publishes the entity of `path`, or returns the one that is already published. Null if the path
   // does not exist.
   virtual Quill::Ptr< Quill::Entity > mount( std::string_view path ) = 0;
   // The path is no longer mounted anywhere. No effect if nothing is published there.
   virtual void unmount( std::string_view path ) = 0;
};

class EntityManager final : public Quill::PtrInterface {
   QUILL_TRACKED( Orrery::EntityManager )
 public:
   EntityManager();
   ~EntityManager() override;

   Quill::Ptr< Quill::Dir > const & root() const noexcept { return root_; }

   // Hands the paths that begin with `prefix` to `provider`, which must outlive its use; null takes
   // it back.
   void mountProviderIs( std::string prefix, MountProvider * provider );

   // Mounts the entity published at `path`. Mounting twice is harmless: one unmount undoes both.
   void mount( std::string_view path );
   // Undoes mount; no effect on a path that is not mounted.
   void unmount( std::string_view path );
   // The mounted entity; null if the path is not mounted or nothing is published there.
   Quill::Ptr< Quill::Entity > mounted( std::string_view path ) const;
   std::size_t mounts() const noexcept { return mounts_.size(); }

 private:
   MountProvider * provider( std::string_view path ) const;

   Quill::Ptr< Quill::Dir > const root_;
   std::map< std::string, MountProvider *, std::less<> > providers_;
   std::map< std::string, Quill::Ptr< Quill::Entity >, std::less<> > mounts_;
};

} // namespace Orrery
