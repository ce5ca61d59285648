// The goodbyes to multicast groups, of IGMP and MLD. They are not derived from frames, since the kernel reports a group only
// when a router asks, but made of the groups that the kernel lists. Those are read in a thread, when the kernel reports
// some.
#pragma once

#include "derivation/Memberships.h"
#include "linux/NetNs.h"
#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <map>
#include <vector>

namespace Valend {

class Memberships {
 public:
   // Called from the loop with what is said of all groups of the device at the place.
   using Read = std::function< void( LinkPlace const & place,
                                     std::vector< Derivation::Heard > const & said ) >;

   // `loop` must outlive this.
   Memberships( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsDirectories directories,
                Read read );

   // The groups of the device may have changed: they are read in a while.
   void changed( LinkPlace const & place, U32 ifIndex );

 private:
   using Places = std::map< U32, LinkPlace >; // of one namespace, by index

   void readAll();
   void readSome( Places const & places );

   Valen::Linux::NetNsDirectories const directories_;
   Read const read_;
   std::map< LinkPlace, U32 > changed_; // with their indexes
   Gantry::Timer timer_;
   Valen::Linux::Worker worker_;
};

} // namespace Valend
