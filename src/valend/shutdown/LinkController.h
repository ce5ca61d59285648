// Carries out what the operator asks of links: shuts them down, one Shutdown each, and sets them up.
// Finishes the shutdowns that an agent before this one began, and notices links that somebody else
// sets down.
//
// Acts from the loop only: what it hears in notifications it notes and looks at later. Shutdowns
// begin one per turn of the loop, so that due timers run in between.
#pragma once

#include "platform/gantry/WorkQueue.h"
#include "valend/base/Refusal.h"
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
   // How long after a change of a link by the agent what is heard of the link may be older.
   static constexpr std::chrono::milliseconds ownEcho{ 2000 };

   // `config` is the one in force, wherever it is kept. All must outlive the controller.
   LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                   Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                   Gantry::WorkQueue & work );
   ~LinkController(); // changes no link
   LinkController( LinkController const & ) = delete;
   LinkController & operator=( LinkController const & ) = delete;

   // What the journal held: takes over the history, and finishes what was begun. Once, when the
   // library has started.
   void resume( Journal::Content content );

   // Shuts the interface down. `observer` (may be empty) is told of each step, from the loop; one
   // that comes while a shutdown runs joins it, and hears of the last step first. Throws Refusal.
   void shutdown( std::string const & interface, std::string by, ShutdownObserver observer );

   enum class Enabled : U8 {
      up,        // the link was down and is up
      alreadyUp, // it was up
      aborted,   // a shutdown was under way and is called off; the link stays up
   };
   // Throws Refusal.
   Enabled enable( std::string const & interface, std::string const & by );

   // A device was set up or down, by whomever, or is gone. May be called inside a notification.
   void linkSeen( LinkPlace const & place, std::optional< bool > up );

   // `ended` hears of every shutdown that ends, before its observers do, and of every link that went
   // down without goodbye.
   void endedIs( std::function< void( ShutdownRecord const & ) > ended ) {
      ended_ = std::move( ended );
   }

   // How long the interface's link is still held; nothing when no shutdown holds it.
   std::optional< std::chrono::milliseconds > remaining( std::string const & interface ) const;
   bool running( std::string const & interface ) const { return find( interface ) != nullptr; }
   std::size_t running() const noexcept { return shutdowns_.size(); }
   // Whether the link is down because somebody else set it down.
   bool downWithoutGoodbye( LinkPlace const & place ) const;
   std::deque< ShutdownRecord > const & history() const noexcept { return history_; }
   ShutdownTotals totals( std::string const & interface ) const {
      return statistics_.totals( interface );
   }
   ShutdownStatistics const & statistics() const noexcept { return statistics_; }
   // What is wrong with the journal; empty when nothing is.
   std::string const & trouble() const noexcept { return journal_.trouble(); }

 private:
   // What is known of a device's link.
   struct Link {
      bool up = false;
      bool withoutGoodbye = false;         // down, and not by a shutdown
      std::optional< Gantry::Time > ownAt; // when the agent last changed it
   };

   Settings::InterfaceConfig const & interface( std::string const & name ) const;
   LinkPlace placeOf( Settings::InterfaceConfig const & interface ) const;
   void enqueue( std::string const & name );
   void beginNext();
   void statusChanged( std::string const & interface );
   void linkChanged( LinkPlace const & place, std::optional< bool > up );
   bool outdated( LinkPlace const & place, Link const & link, bool up );
   void wentDown( LinkPlace const & place );
   void ownChange( LinkPlace const & place, bool up );
   void ended( Shutdown & shutdown );
   void remember( ShutdownRecord const & record );
   Shutdown * find( std::string const & interface ) const;

   Journal & journal_;
   Settings::Config const & config_;
   LinkPort & port_;
   Gantry::PostedWork posted_;
   Shutdown::Surroundings const surroundings_;
   std::map< std::string, std::unique_ptr< Shutdown > > shutdowns_; // by interface
   std::vector< std::unique_ptr< Shutdown > > done_;                // freed from the loop
   std::deque< std::string > queue_;                                // to begin, oldest first
   std::map< LinkPlace, Link > links_;
   std::deque< ShutdownRecord > history_; // the newest last
   ShutdownStatistics statistics_;
   std::function< void( ShutdownRecord const & ) > ended_;
};

} // namespace Valend
