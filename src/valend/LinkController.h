// Carries out what the operator asks of links: holds a shutdown until the library lets go of it,
// then sets the link down; sets links up.
//
// A shutdown of an interface that is ready raises the interface's adminShutdownDelayed flag, upon
// which the library sends the frames and holds `delayed`. When the library clears that, and the
// frames have left the socket, the link goes down. It fails open: whatever happens to the library's
// side, the link goes down no later than the delay plus a margin, and the record says why.
//
// `delayed` that goes away together with its status entry (a VRF that flaps, a device that is made
// anew) is not the end of the delay: the link is held until its own deadline. The feature or the
// interface's support switched off is.
//
// Acts from the loop only: what it hears in notifications it notes and looks at later. Shutdowns
// begin one per turn of the loop, so that due timers run in between.
#pragma once

#include "platform/quill/Watch.h"
#include "valend/Configuration.h"
#include "valend/LinkPort.h"
#include "valend/Refusal.h"
#include "valend/ShutdownRecord.h"
#include "valend/Store.h"
#include "valend/Timer.h"

#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace Valend {

class LinkController final {
 public:
   using Post = std::function< void( std::function< void() > ) >;

   // How long after the delay's end the library may still hold the link.
   static constexpr std::chrono::milliseconds margin{ 500 };
   // How long frames may take to leave the socket.
   static constexpr std::chrono::milliseconds flushPatience{ 200 };
   // How long a device is waited for whose index was just changing.
   static constexpr std::chrono::milliseconds devicePatience{ 300 };
   static constexpr std::size_t historyLimit = 1000;

   // `post` runs work later, on the loop. `config` is the one in force, wherever it is kept. All
   // must outlive the controller.
   LinkController( Store & store, Config const & config, LinkPort & port,
                   Quill::Ptr< Gantry::TaskScheduler > scheduler, Post post );
   ~LinkController(); // changes no link
   LinkController( LinkController const & ) = delete;
   LinkController & operator=( LinkController const & ) = delete;

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

   // `ended` hears of every shutdown that ends, before its observers do.
   void endedIs( std::function< void( ShutdownRecord const & ) > ended ) {
      ended_ = std::move( ended );
   }

   // How long the interface's link is still held; nothing when no shutdown holds it.
   std::optional< std::chrono::milliseconds > remaining( std::string const & interface ) const;
   bool running( std::string const & interface ) const;
   std::deque< ShutdownRecord > const & history() const noexcept { return history_; }
   ShutdownTotals totals( std::string const & interface ) const;

 private:
   class Operation;
   class StatusSm;

   InterfaceConfig const & interface( std::string const & name ) const;
   LinkPlace placeOf( InterfaceConfig const & interface ) const;
   void beginNext();
   bool follow( Operation & operation ) const;
   void begin( Operation & operation );
   void raise( Operation & operation, Quill::Ptr< Valen::Status::IntfStatus > status );
   void statusChanged( std::string const & interface );
   void check( Operation & operation );
   std::string lostForGood( Operation const & operation ) const;
   void flush( Operation & operation );
   void linkDown( Operation & operation );
   void deviceMissing( Operation & operation, std::string const & why );
   void timerRan( Operation & operation );
   void lower( std::string const & interface );
   void end( Operation & operation, ShutdownRecord::Ending ending, std::string const & why );
   Operation * find( std::string const & interface ) const;

   Store & store_;
   Config const & config_;
   LinkPort & port_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Post const post_;
   std::shared_ptr< bool > const alive_; // posted work looks whether the controller still is
   Quill::Ptr< StatusSm > const statusSm_;
   std::map< std::string, std::unique_ptr< Operation > > operations_;
   std::vector< std::unique_ptr< Operation > > done_; // freed from the loop
   std::deque< std::string > queue_;                  // to begin, oldest first
   std::deque< ShutdownRecord > history_;             // the newest last
   std::map< std::string, ShutdownTotals > totals_;
   std::function< void( ShutdownRecord const & ) > ended_;
};

} // namespace Valend
