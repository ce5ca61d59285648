// Attaches filters to the devices of interfaces, in a thread: the kernel may take long for it, and a shutdown must
// not wait. What fails is tried again, after growing pauses.
#pragma once

#include "egress/Filters.h"
#include "linux/Worker.h"
#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"
#include "platform/gantry/WorkQueue.h"
#include "valend/base/Conditions.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Valend {

// A device as its filter sees it.
struct FilteredDevice {
   U32 filter = 0; // the number of its namespace's filter
   U32 ifIndex = 0;
};

class Attaching {
 public:
   // The index of the device at a place; 0 without a device.
   using IfIndexOf = std::function< U32( LinkPlace const & place ) >;

   // The maps that all filters share.
   struct Maps {
      Valen::Linux::Fd mutes;
      Egress::CopyMaps copies;
   };
   class Observer {
    public:
      // The first filter was loaded; called before all others, once.
      virtual void loaded( Maps maps ) = 0;
      // The device has a filter from now on.
      virtual void attached( LinkPlace const & place, FilteredDevice const & device ) = 0;
      // It has none any more: it is gone, or none is wanted there.
      virtual void lost( LinkPlace const & place, FilteredDevice const & device ) = 0;

    protected:
      ~Observer() = default;
   };

   // All must outlive this. Raises the condition "mute" while a device has no filter, but not for one that is gone, which the
   // kernel has not reported yet.
   Attaching( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsDirectories directories,
              IfIndexOf ifIndexOf, Conditions & conditions, Observer & observer );
   // Removes the filters, for a bounded time.
   ~Attaching();
   Attaching( Attaching const & ) = delete;
   Attaching & operator=( Attaching const & ) = delete;

   // The device at the place has a filter from now on, while it exists.
   //   generation   of the configuration that has the place
   void placeIs( LinkPlace const & place, U64 generation );
   // Drops places that no configuration since this generation has. Returns whether there are more of them to look for.
   bool dropOlder( U64 generation );
   // What the kernel reports of the device at the place. May be called inside a notification.
   void deviceSeen( LinkPlace const & place, LinkSeen seen );
   // The namespace was deleted, or replaced under the same name: what was attached in it is gone.
   void namespaceChanged( std::string const & netNs );

   // The device, if it has a filter.
   std::optional< FilteredDevice > filtered( LinkPlace const & place ) const;
   // Why the device has no filter; empty if it has one.
   std::string whyNot( LinkPlace const & place ) const;

 private:
   enum class State : U8 {
      missing,  // to attach
      asked,    // the thread attaches it
      filtered, // done
      failed,   // to attach after a pause
   };
   struct Device {
      U32 ifIndex = 0;
      State state = State::missing;
      std::string why;     // it failed
      bool isGone = false; // it failed since there is no such device any more
   };
   using Devices = std::map< LinkPlace, Device >;
   struct Batch;

   void lookSoon();
   void look();
   void lookAt( LinkPlace const & place );
   void forget( Devices::iterator device, U32 number );
   void drop( Devices::iterator device );
   void detach( LinkPlace const & place, U32 ifIndex );
   void attachMissing();
   void attachAgain();
   void attached( Batch & batch );
   void stateIs( Devices::iterator device, State state );
   void tell();
   void tellFailed();
   U32 numberOf( std::string const & netNs );

   Valen::Linux::NetNsDirectories const directories_;
   IfIndexOf const ifIndexOf_;
   Observer & observer_;
   Condition condition_;
   std::map< LinkPlace, U64 > places_; // with their generation
   LinkPlace lookedFor_;               // by dropOlder()
   std::set< LinkPlace > seen_;        // to look at
   std::set< LinkPlace > gone_; // of these: the device was gone meanwhile, and its filter with it
   bool lookPosted_ = false;
   Devices devices_;                        // that exist, of the places
   std::set< LinkPlace > missing_, failed_; // those in these states
   std::size_t asked_ = 0;
   std::map< std::string, U32 > numbers_; // of the namespaces
   U32 lastNumber_ = 0;
   bool mapsAsked_ = false;
   bool mapsLoaded_ = false;
   std::shared_ptr< Egress::Filters > const filters_; // the thread's alone
   Gantry::PostedWork posted_;
   Gantry::Backoff pause_;
   Gantry::Timer again_;
   Valen::Linux::Worker worker_;
};

} // namespace Valend
