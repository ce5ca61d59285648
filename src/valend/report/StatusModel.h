// The status of all interfaces as JSON, kept up to date for all who follow it together.
//
// An interface is looked at again when something of it has changed, and all of them once per period, for
// what is not noticed. The loop is never kept for longer than a slice. Each change of an interface has a
// number, so that what is new since any of them can be told.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/base/Slices.h"
#include "valend/report/StatusChanges.h"
#include "valend/report/StatusReport.h"

#include <deque>

namespace Valend {

class StatusModel {
 public:
   // How often remaining times and counters are looked at.
   static constexpr std::chrono::milliseconds period{ 250 };

   // `news` is called from the loop after something has changed, and when the model is complete. All
   // must outlive the model.
   StatusModel( Store const & store, Feeder const & feeder, StatusReport const & report,
                Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work,
                std::function< void() > news );
   ~StatusModel();
   StatusModel( StatusModel const & ) = delete;
   StatusModel & operator=( StatusModel const & ) = delete;

   // Whether the model is kept up to date. While it is not, it is empty.
   void neededIs( bool needed );
   // Something of the interface has changed that StatusChanges does not notice.
   void changed( std::string const & interface );
   // Looks at the interface now.
   void update( std::string const & interface );

   // Whether all interfaces have been looked at.
   bool complete() const noexcept { return complete_; }
   // The number of the last change, and of the last one of the interface; 0: there was none.
   U64 last() const noexcept { return last_; }
   U64 last( std::string const & interface ) const;
   // The API's type Interface; null when the interface is not configured, or not known yet.
   Json const * find( std::string const & interface ) const;
   // The interfaces that have changed after `since`, and those that are gone since then.
   struct Changes {
      std::vector< std::string > changed; // the longest ago first
      std::vector< std::string > gone;
   };
   Changes changes( U64 since ) const;
   // What has changed after `since`, of all interfaces or one, as WatchStatus answers it.
   std::string difference( U64 since, std::optional< std::string > const & interface ) const;
   // No one asks for changes up to `since` any more.
   void forget( U64 since );

 private:
   struct Entry {
      Json json = nullptr;
      std::string text;
      U64 change = 0; // the number of the last one
      LinkPlace place;
   };

   void deviceChanged( LinkPlace const & place );
   void workLater();
   void work();
   void sweep();
   bool sweepOne();
   void tell();
   void placeDel( LinkPlace const & place, std::string const & interface );
   void remove( std::string const & interface );

   Store const & store_;
   Feeder const & feeder_;
   StatusReport const & report_;
   std::function< void() > const news_;
   std::unique_ptr< StatusChanges > changes_; // while it is needed
   std::map< std::string, Entry > entries_;   // by interface
   std::map< U64, std::string > newest_;      // the interfaces by the numbers of their last changes
   std::map< std::string, U64 > gone_;        // interfaces, and the numbers of their removals
   std::multimap< LinkPlace, std::string > places_;
   std::deque< std::string > stale_; // to be looked at
   std::set< std::string > isStale_;
   Slices slices_;
   Gantry::Timer sweeps_;
   std::string sweptTo_; // the last interface of the current sweep
   U64 last_ = 0;
   U64 told_ = 0; // the last change of which there was news
   bool complete_ = false;
   bool pending_ = false; // work is posted
};

} // namespace Valend
