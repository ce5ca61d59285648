// Knows which links are up, and reports those that are set down outside valend.
//
// What is reported of a link in the two seconds after valend changed it may be older than that
// change, so the kernel is asked. Acts from the loop only.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/kernel/LinkPort.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace Valend {

class LinkTracker {
 public:
   // How long after a change by valend a report may be older than it.
   static constexpr std::chrono::milliseconds echoTime{ 2000 };

   using SetDownOutside = std::function< void( LinkPlace const & place ) >;

   // `port` must outlive the tracker.
   LinkTracker( LinkPort & port, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                SetDownOutside setDownOutside )
       : port_( port ), scheduler_( std::move( scheduler ) ),
         setDownOutside_( std::move( setDownOutside ) ) {}

   // The kernel reports a device.
   void reported( LinkPlace const & place, LinkSeen seen );
   // valend set the link up or down.
   void setUp( LinkPlace const & place );
   void setDown( LinkPlace const & place );

   // Marks a link as down without goodbye frames, until it is set up, by valend or outside.
   void markWithoutGoodbye( LinkPlace const & place );
   bool downWithoutGoodbye( LinkPlace const & place ) const;

 private:
   struct Link {
      LinkSeen last = LinkSeen::down; // never gone
      bool withoutGoodbye = false;
      std::optional< Gantry::Time > changedAt; // by valend
   };

   bool outdated( LinkPlace const & place, Link const & link, LinkSeen seen ) const;

   LinkPort & port_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   SetDownOutside const setDownOutside_;
   std::map< LinkPlace, Link > links_;
};

} // namespace Valend
