// Reads a part of the store again whenever it has changed: once per turn of the loop, however many
// changes there were, and never so often that reading would keep the loop busy.
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
      bool skipped = false; // nothing was read: the followed entities stay the same
      std::optional< std::chrono::milliseconds > next = std::nullopt; // look then, changed or not
   };
   // Looks, and adds to `visits` the entities whose changes call for the next look. Must not destroy
   // the watch.
   using Look = std::function< Looked( StoreVisits & visits ) >;

   // The pause before the next look is at least this many times as long as the last one took.
   static constexpr int restFactor = 10;

   // Looks for the first time when `work` runs next.
   StoreWatch( Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work, Look look );
   ~StoreWatch();
   StoreWatch( StoreWatch const & ) = delete;
   StoreWatch & operator=( StoreWatch const & ) = delete;

   // Something has changed that is not in the store. May be called inside a notification.
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
