// Shuts links down, one Shutdown each, sets them up, and says goodbye on them, as clients request.
// Continues the shutdowns of the previous run, and records links that are set down outside valend.
//
// Acts from the loop only: it posts what it is notified of, and handles it later. Shutdowns begin one
// per turn of the loop, so that due timers run in between. A shutdown that is requested while its link is being
// set up begins after that.
#pragma once

#include "platform/gantry/WorkQueue.h"
#include "valend/kernel/Places.h"
#include "valend/shutdown/Enablings.h"
#include "valend/shutdown/Goodbye.h"
#include "valend/shutdown/LinkTracker.h"
#include "valend/shutdown/OnePerTurn.h"
#include "valend/shutdown/Recovery.h"
#include "valend/shutdown/Repeats.h"
#include "valend/shutdown/Shutdown.h"
#include "valend/shutdown/ShutdownStatistics.h"

#include <map>
#include <memory>
#include <set>
#include <vector>

namespace Valend {

class LinkController final {
 public:
   // `config` is the active configuration. All must outlive the controller.
   LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                   SpeakerPort & speakers, Journal & journal, Conditions & conditions,
                   Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work );
   ~LinkController(); // changes no link
   LinkController( LinkController const & ) = delete;
   LinkController & operator=( LinkController const & ) = delete;

   // Takes over what the previous run left. Call it once, when the library has started.
   void resume( Recovered recovered );

   // Shuts the interface down. `observer` (may be empty) is called at each step, from the loop. While
   // a shutdown is running, this joins it: the observer is called with the last step first. Throws
   // Refusal.
   void shutdown( std::string const & interface, Request request, ShutdownObserver observer );

   // Sends the interface's frames; the link is not changed. `observer` is called at the end, from the
   // loop. While a goodbye is running, this joins it. Returns why no frames can be sent now, and the
   // observer will not be called; else an empty text. Throws Refusal.
   std::string goodbye( std::string const & interface, Request request, ShutdownObserver observer );

   // Sets the link up, or aborts the shutdown. `observer` is called with the result, from the loop or
   // inside the call. Throws Refusal if there is no such interface.
   void enable( std::string const & interface, std::string const & requester,
                EnableObserver observer );

   // The configuration has changed.
   void configChanged();

   // The kernel reported a device. May be called inside a notification.
   void linkSeen( LinkPlace const & place, LinkSeen seen );

   // `ended` is called with every shutdown and goodbye that ends, before its observers, and with every
   // link that was set down outside valend.
   void endedIs( std::function< void( ShutdownRecord const & ) > ended ) {
      ended_ = std::move( ended );
   }

   // How long the interface's link is still held; nothing when no shutdown holds it.
   std::optional< std::chrono::milliseconds > remaining( std::string const & interface ) const;
   // The id of the request of the shutdown that is running; else empty.
   std::string requestId( std::string const & interface ) const;
   bool running( std::string const & interface ) const { return find( interface ) != nullptr; }
   std::size_t running() const noexcept { return shutdowns_.size(); }
   // Why the kernel does not set the interface's link down, while that is tried again; else empty.
   std::string whyRetrying( std::string const & interface ) const;
   // Drops the changes of links that have not begun: valend stops. Returns what becomes of each shutdown
   // in progress, and of each link that was to be set up, a line each.
   std::vector< std::string > stop();
   // Whether the link was set down outside valend, and is down since.
   bool downWithoutGoodbye( LinkPlace const & place ) const {
      return links_.downWithoutGoodbye( place );
   }
   // In the order of their ends, the newest last.
   History::Records const & history() const noexcept { return history_.records(); }
   ShutdownTotals totals( std::string const & interface ) const {
      return statistics_.totals( interface );
   }
   ShutdownStatistics const & statistics() const noexcept { return statistics_; }

 private:
   Settings::InterfaceConfig const & interface( std::string const & name ) const;
   void setUpAnswered( std::string const & name, LinkPlace const & place,
                       LinkAnswer const & answer );
   std::string pendingLine( Shutdown const & shutdown ) const;
   void enqueueShutdown( std::string const & name );
   void libraryChanged( std::string const & interface );
   void setDownOutside( LinkPlace const & place );
   void recordSetDownOutside( std::string const & interface, LinkPlace const & place );
   void linkReported( LinkPlace const & place, LinkSeen seen );
   void ended( Shutdown & shutdown );
   void ended( Goodbye & goodbye );
   void recordEnded( ShutdownRecord const & record );
   void remember( U64 id, ShutdownRecord const & record );
   void tellEnded( ShutdownRecord const & record );
   Shutdown * find( std::string const & interface ) const;

   Journal & journal_;
   Settings::Config const & config_;
   InterfaceAt interfaceAt_;
   LinkPort & port_;
   Gantry::PostedWork posted_;
   OnePerTurn begins_;
   LinkTracker links_;
   Shutdown::Surroundings const surroundings_;
   Goodbye::Surroundings const goodbyeSurroundings_;
   std::map< std::string, std::unique_ptr< Shutdown > > shutdowns_; // by interface
   std::map< std::string, std::unique_ptr< Goodbye > > goodbyes_;   // by interface
   Enablings enablings_;
   std::vector< std::shared_ptr< void > > done_; // destroyed from the loop
   std::set< std::string > unseen_;              // resumed shutdowns whose device was not seen yet
   History history_;
   Repeats repeats_;
   ShutdownStatistics statistics_;
   std::function< void( ShutdownRecord const & ) > ended_;
};

} // namespace Valend
