// Shuts links down, one Shutdown each, and sets them up, as clients request.
// Continues the shutdowns of the previous run, and records links that are set down outside valend.
//
// Acts from the loop only: it posts what it is notified of, and handles it later. Shutdowns begin one
// per turn of the loop, so that due timers run in between.
#pragma once

#include "platform/gantry/WorkQueue.h"
#include "valend/base/Refusal.h"
#include "valend/shutdown/LinkTracker.h"
#include "valend/shutdown/Recovery.h"
#include "valend/shutdown/Shutdown.h"
#include "valend/shutdown/ShutdownStatistics.h"

#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace Valend {

class LinkController final {
 public:
   static constexpr std::size_t historyLimit = Journal::historyLimit;

   // `config` is the active configuration. All must outlive the controller.
   LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                   Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                   Gantry::WorkQueue & work );
   ~LinkController(); // changes no link
   LinkController( LinkController const & ) = delete;
   LinkController & operator=( LinkController const & ) = delete;

   // Takes over what the previous run left. Call it once, when the library has started.
   void resume( Recovered recovered );

   // Shuts the interface down. `observer` (may be empty) is called at each step, from the loop. While
   // a shutdown is running, this joins it: the observer is called with the last step first. Throws
   // Refusal.
   void shutdown( std::string const & interface, std::string by, ShutdownObserver observer );

   enum class Enabled : U8 {
      up,        // the link was down and is up
      alreadyUp, // it was up
      aborted,   // a shutdown was running and is aborted; the link stays up
   };
   // Throws Refusal.
   Enabled enable( std::string const & interface, std::string const & by );

   // A device was reported: whether its link is up, or nothing when it is gone. May be called inside
   // a notification.
   void linkSeen( LinkPlace const & place, std::optional< bool > up );

   // `ended` is called with every shutdown that ends, before its observers, and with every link that
   // was set down outside valend.
   void endedIs( std::function< void( ShutdownRecord const & ) > ended ) {
      ended_ = std::move( ended );
   }

   // How long the interface's link is still held; nothing when no shutdown holds it.
   std::optional< std::chrono::milliseconds > remaining( std::string const & interface ) const;
   bool running( std::string const & interface ) const { return find( interface ) != nullptr; }
   std::size_t running() const noexcept { return shutdowns_.size(); }
   // Whether the link was set down outside valend, and is down since.
   bool downWithoutGoodbye( LinkPlace const & place ) const {
      return links_.downWithoutGoodbye( place );
   }
   // The newest last.
   std::deque< ShutdownRecord > const & history() const noexcept { return history_; }
   ShutdownTotals totals( std::string const & interface ) const {
      return statistics_.totals( interface );
   }
   ShutdownStatistics const & statistics() const noexcept { return statistics_; }

 private:
   Settings::InterfaceConfig const & interface( std::string const & name ) const;
   LinkPlace placeOf( Settings::InterfaceConfig const & interface ) const;
   void enqueue( std::string const & name );
   void beginNext();
   void libraryChanged( std::string const & interface );
   void setDownOutside( LinkPlace const & place );
   void recordSetDownOutside( std::string const & interface, LinkPlace const & place );
   void ended( Shutdown & shutdown );
   void remember( ShutdownRecord const & record );
   Shutdown * find( std::string const & interface ) const;

   Journal & journal_;
   Settings::Config const & config_;
   LinkPort & port_;
   Gantry::PostedWork posted_;
   LinkTracker links_;
   Shutdown::Surroundings const surroundings_;
   std::map< std::string, std::unique_ptr< Shutdown > > shutdowns_; // by interface
   std::vector< std::unique_ptr< Shutdown > > done_;                // destroyed from the loop
   std::deque< std::string > queue_;                                // to begin, oldest first
   std::deque< ShutdownRecord > history_;
   ShutdownStatistics statistics_;
   std::function< void( ShutdownRecord const & ) > ended_;
};

} // namespace Valend
