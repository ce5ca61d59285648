// Looks at a part of the store again whenever it has changed: once in a turn of the loop, however
// many changes that turn brought, and never so often that looking would keep the loop busy.
#pragma once

#include "platform/gantry/Timer.h"
#include "platform/gantry/WorkQueue.h"
#include "valend/store/StoreWalker.h"

#include <functional>
#include <memory>
#include <unordered_map>

namespace Valend {

class StoreWatch {
 public:
   struct Looked {
      bool over = false;    // no further look is wanted
      bool skipped = false; // this was none: what is followed stays
      std::optional< std::chrono::milliseconds > next = std::nullopt; // look then, changed or not
   };
   // Looks, and adds to `visits` the entities whose changes call for the next look. Must not destroy
   // the watch.
   using Look = std::function< Looked( StoreVisits & visits ) >;

   // At least this many times as long as a look took passes before the next one.
   static constexpr int restFactor = 10;

   // Looks for the first time when `work` runs next.
   StoreWatch( Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work, Look look );
   ~StoreWatch();
   StoreWatch( StoreWatch const & ) = delete;
   StoreWatch & operator=( StoreWatch const & ) = delete;

   // Something has changed that the store does not tell. May be called inside a notification.
   void changed();
   bool over() const noexcept { return over_; }
   // Entities that are followed.
   std::size_t followed() const noexcept { return followers_.size(); }

 private:
   class Follower;

   void look();
   void follow( StoreVisits const & visits );

   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Look const look_;
   std::unordered_map< Quill::Entity const *, std::unique_ptr< Follower > > followers_;
   Gantry::PostedWork posted_;
   Gantry::Timer timer_;
   Gantry::Time restEnd_{};
   bool pending_ = false; // a look is posted
   bool over_ = false;
};

} // namespace Valend
