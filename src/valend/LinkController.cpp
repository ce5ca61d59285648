#include "valend/LinkController.h"

#include <algorithm>
#include <cerrno>

namespace Valend {

using std::chrono::milliseconds;
using Ending = ShutdownRecord::Ending;

namespace {

milliseconds inMs( Gantry::Time time ) {
   return std::chrono::duration_cast< milliseconds >( time );
}

bool isMissing( Quill::ErrnoException const & e ) {
   return e.number() == ENODEV || e.number() == ENOENT;
}

constexpr char const * otherOwner =
   "the interface is not configured any more, and its device is another's now";

} // namespace

// One shutdown under way.
class LinkController::Operation {
 public:
   enum class Phase : U8 {
      queued,
      holding,  // the frames are out, the link is held
      flushing, // waits for the socket to be empty
      lowering, // waits for a device whose index was just changing
      ended,
   };

   Operation( LinkController & controller, InterfaceConfig const & config, LinkPlace linkPlace,
              std::string by )
       : place( std::move( linkPlace ) ),
         timer( controller.scheduler_, "shutdown::" + config.name,
                [ this, &controller ] { controller.timerRan( *this ); } ) {
      record.interface = config.name;
      record.by = std::move( by );
      record.when = std::chrono::system_clock::now();
   }

   void step( ShutdownStep next ) {
      lastStep = next;
      for ( auto const & observer : std::vector( observers ) ) { // it may bring another one
         observer( next, record );
      }
   }

   LinkPlace place; // where the interface is, or was when it was configured last
   Phase phase = Phase::queued;
   ShutdownRecord record;
   std::vector< ShutdownObserver > observers;
   std::optional< ShutdownStep > lastStep;
   Quill::Ptr< Valen::Status::IntfStatus const > status; // the entry through which it is held
   Gantry::Time sentAt{};
   Gantry::Time heldUntil{}; // the delay's end by our own clock
   Gantry::Time patienceEnd{};
   Timer timer;
};

// Notes changes of the status entries.
class LinkController::StatusSm final : public Quill::Reactor {
   QUILL_TRACKED( Valend::LinkController::StatusSm )
 public:
   StatusSm( LinkController & controller, Quill::Ptr< Valen::Status::StatusDir const > dir )
       : controller_( controller ), dir_( *this, std::move( dir ) ) {}

   char const * reactorName() const noexcept override { return "StatusSm"; }

   void handleIntfStatus( Corvid::IntfId intfId ) {
      if ( entries_.has( intfId ) ) {
         controller_.statusChanged( intfId.stdString() );
      }
   }
   // Follows the entry from now on, in place of the interface's last one; null ends that.
   void follow( Corvid::IntfId const & intfId,
                Quill::Ptr< Valen::Status::IntfStatus const > entry ) {
      Quill::Reactor::retire( entries_.remove( intfId ) );
      if ( entry ) {
         entries_.insert( Quill::make< EntrySm >( controller_, intfId, std::move( entry ) ) );
      }
   }

 private:
   class EntrySm final : public Quill::Reactor {
      QUILL_TRACKED( Valend::LinkController::StatusSm::EntrySm )
    public:
      EntrySm( LinkController & controller, Corvid::IntfId intfId,
               Quill::Ptr< Valen::Status::IntfStatus const > entry )
          : controller_( controller ), intfId_( std::move( intfId ) ),
            entry_( *this, std::move( entry ) ) {}

      char const * reactorName() const noexcept override { return "EntrySm"; }
      Corvid::IntfId const & intfId() const noexcept { return intfId_; }
      void handleDelayed() { controller_.statusChanged( intfId_.stdString() ); }

    private:
      LinkController & controller_;
      Corvid::IntfId const intfId_;
      Quill::Watch< EntrySm, Valen::Status::IntfStatus const,
                    Quill::On< Valen::Status::IntfStatus::delayedAttr, &EntrySm::handleDelayed > >
         entry_;
   };

   LinkController & controller_;
   Quill::Watch<
      StatusSm, Valen::Status::StatusDir const,
      Quill::On< Valen::Status::StatusDir::intfStatusAttr, &StatusSm::handleIntfStatus > >
      dir_;
   Quill::Members< EntrySm, &EntrySm::intfId > entries_;
};

LinkController::LinkController( Store & store, Config const & config, LinkPort & port,
                                Quill::Ptr< Gantry::TaskScheduler > scheduler, Post post )
    : store_( store ), config_( config ), port_( port ), scheduler_( std::move( scheduler ) ),
      post_( std::move( post ) ), alive_( std::make_shared< bool >( true ) ),
      statusSm_( Quill::make< StatusSm >( *this, store.statusDir ) ) {}

LinkController::~LinkController() {
   *alive_ = false;
}

// --- What is asked -------------------------------------------------------------------------------

InterfaceConfig const & LinkController::interface( std::string const & name ) const {
   auto const found = config_.interfaces.find( name );
   if ( found == config_.interfaces.end() ) {
      throw Refusal( "NoSuchInterface", "no interface \"" + name + "\" is configured" );
   }
   return found->second;
}

LinkPlace LinkController::placeOf( InterfaceConfig const & interface ) const {
   return { config_.netNsOf( interface.vrf ), interface.device };
}

LinkController::Operation * LinkController::find( std::string const & interface ) const {
   auto const found = operations_.find( interface );
   return found == operations_.end() ? nullptr : found->second.get();
}

void LinkController::shutdown( std::string const & name, std::string by,
                               ShutdownObserver observer ) {
   auto const & config = interface( name );
   auto * operation = find( name );
   if ( !operation ) {
      auto & place = operations_[ name ];
      place = std::make_unique< Operation >( *this, config, placeOf( config ), std::move( by ) );
      operation = place.get();
      queue_.push_back( name );
      if ( queue_.size() == 1 ) {
         post_( [ this, alive = alive_ ] { *alive ? beginNext() : void(); } );
      }
   }
   if ( observer ) {
      if ( operation->lastStep ) {
         observer( *operation->lastStep, operation->record );
      }
      operation->observers.push_back( std::move( observer ) );
   }
}

LinkController::Enabled LinkController::enable( std::string const & name, std::string const & by ) {
   auto const & config = interface( name );
   if ( auto * const operation = find( name ) ) {
      auto const into = inMs( scheduler_->now() - operation->sentAt );
      end( *operation, Ending::aborted,
           operation->lastStep
              ? "enabled by " + by + " " + std::to_string( into.count() ) + " ms into the delay"
              : "enabled by " + by + " before it began" );
      return Enabled::aborted;
   }
   lower( name );
   auto const place = placeOf( config );
   try {
      bool const wasUp = port_.up( place );
      if ( !wasUp ) {
         port_.upIs( place, true );
      }
      return wasUp ? Enabled::alreadyUp : Enabled::up;
   } catch ( Quill::ErrnoException const & e ) {
      throw Refusal( isMissing( e ) ? "NoDevice" : "LinkFailed", e.what() );
   }
}

std::optional< milliseconds > LinkController::remaining( std::string const & name ) const {
   auto const * const operation = find( name );
   if ( !operation || operation->phase != Operation::Phase::holding ) {
      return std::nullopt;
   }
   return std::max( milliseconds( 0 ), inMs( operation->heldUntil - scheduler_->now() ) );
}

bool LinkController::running( std::string const & name ) const {
   return find( name ) != nullptr;
}

ShutdownTotals LinkController::totals( std::string const & name ) const {
   auto const found = totals_.find( name );
   return found == totals_.end() ? ShutdownTotals() : found->second;
}

// --- The road of a shutdown ----------------------------------------------------------------------

void LinkController::beginNext() {
   while ( !queue_.empty() ) {
      auto const name = queue_.front();
      queue_.pop_front();
      if ( auto * const operation = find( name ) ) { // else it was called off
         begin( *operation );
         break;
      }
   }
   if ( !queue_.empty() ) {
      post_( [ this, alive = alive_ ] { *alive ? beginNext() : void(); } );
   }
}

// The configuration may have given the interface another device or VRF since the shutdown was asked
// for. False when it has it no longer, and its device is another interface's now.
bool LinkController::follow( Operation & operation ) const {
   auto const & interfaces = config_.interfaces;
   auto const own = interfaces.find( operation.record.interface );
   if ( own != interfaces.end() ) {
      operation.place = placeOf( own->second );
      return true;
   }
   return std::none_of( interfaces.begin(), interfaces.end(), [ & ]( auto const & other ) {
      return placeOf( other.second ) == operation.place;
   } );
}

void LinkController::begin( Operation & operation ) {
   if ( !follow( operation ) ) {
      return end( operation, Ending::noDevice, otherOwner );
   }
   try {
      if ( !port_.up( operation.place ) ) {
         return end( operation, Ending::alreadyDown, "" );
      }
   } catch ( Quill::ErrnoException const & e ) {
      return end( operation, isMissing( e ) ? Ending::noDevice : Ending::failed, e.what() );
   }
   auto const status = store_.statusDir->intfStatus( operation.record.interface );
   if ( status && status->shouldDelay() ) {
      raise( operation, status );
   } else {
      linkDown( operation );
   }
}

void LinkController::raise( Operation & operation,
                            Quill::Ptr< Valen::Status::IntfStatus > status ) {
   Corvid::IntfId const intfId( operation.record.interface );
   auto const delay = milliseconds( config_.shutdownDelayMs.value_or( 0 ) );
   auto & record = operation.record;
   record.withDelay = true;
   operation.status = status;
   operation.sentAt = scheduler_->now();
   operation.heldUntil = operation.sentAt + delay;
   lower( record.interface ); // somebody else may have set the link up since the last shutdown

   auto const before = port_.counters( operation.place.netNs );
   store_.allIntfConfigDir->intfConfig( intfId )->adminShutdownDelayedIs( true ); // sends
   auto const after = port_.counters( operation.place.netNs );
   record.sent = after.sent - before.sent;
   record.failed = after.failed - before.failed;
   if ( record.failed ) {
      record.failReason = port_.sendTrouble( operation.place );
   }
   operation.step( ShutdownStep::sent );
   if ( operation.phase == Operation::Phase::ended ) { // an observer called it off
      return;
   }
   if ( !status->delayed() ) {
      record.why = "the library did not hold the shutdown";
      return flush( operation );
   }
   operation.phase = Operation::Phase::holding;
   statusSm_->follow( intfId, status );
   operation.timer.start( operation.heldUntil + margin - scheduler_->now() );
   operation.step( ShutdownStep::delayed );
}

void LinkController::statusChanged( std::string const & name ) {
   post_( [ this, alive = alive_, name ] {
      if ( auto * const operation = *alive ? find( name ) : nullptr ) {
         check( *operation );
      }
   } );
}

void LinkController::check( Operation & operation ) {
   if ( operation.phase != Operation::Phase::holding ) {
      return;
   }
   auto const status = store_.statusDir->intfStatus( operation.record.interface );
   if ( status && operation.status == status ) {
      return status->delayed() ? void() : flush( operation );
   }
   auto & why = operation.record.why;
   auto const forGood = lostForGood( operation );
   auto const into = inMs( scheduler_->now() - operation.sentAt );
   if ( why.empty() ) {
      why = "readiness was lost " + std::to_string( into.count() ) + " ms into the delay" +
            ( forGood.empty() ? "" : ": " + forGood );
   }
   if ( !forGood.empty() || scheduler_->now() >= operation.heldUntil ) {
      return flush( operation );
   }
   operation.timer.start( operation.heldUntil - scheduler_->now() );
}

// Why the interface cannot become ready again before its deadline; empty when it may.
std::string LinkController::lostForGood( Operation const & operation ) const {
   if ( !store_.configDir->globalConfig() ) {
      return "the feature was switched off";
   }
   auto const config = store_.allIntfConfigDir->intfConfig( operation.record.interface );
   if ( !config ) {
      return "the interface is not configured any more";
   }
   return config->adminShutdownDelaySupported() ? "" : "the delay is not supported any more";
}

void LinkController::timerRan( Operation & operation ) {
   switch ( operation.phase ) {
   case Operation::Phase::holding:
      if ( operation.record.why.empty() ) {
         operation.record.why = "the library did not let go in time";
      }
      return flush( operation );
   case Operation::Phase::flushing:
      return flush( operation );
   case Operation::Phase::lowering:
      return linkDown( operation );
   case Operation::Phase::queued:
   case Operation::Phase::ended:
      return;
   }
}

void LinkController::flush( Operation & operation ) {
   auto const now = scheduler_->now();
   if ( operation.phase != Operation::Phase::flushing ) {
      operation.phase = Operation::Phase::flushing;
      operation.patienceEnd = now + flushPatience;
      operation.record.held = inMs( now - operation.sentAt );
   }
   auto const bytes = port_.outstandingBytes( operation.place.netNs );
   if ( bytes && now < operation.patienceEnd ) {
      return operation.timer.start( milliseconds( 2 ) );
   }
   operation.record.unflushedBytes = bytes;
   linkDown( operation );
}

void LinkController::linkDown( Operation & operation ) {
   if ( !follow( operation ) ) {
      return end( operation, Ending::noDevice, otherOwner );
   }
   if ( operation.phase != Operation::Phase::lowering ) {
      operation.phase = Operation::Phase::lowering;
      operation.patienceEnd = scheduler_->now() + devicePatience;
   }
   try {
      port_.upIs( operation.place, false );
   } catch ( Quill::ErrnoException const & e ) {
      return isMissing( e ) ? deviceMissing( operation, e.what() )
                            : end( operation, Ending::failed, e.what() );
   }
   end( operation, Ending::down, "" );
}

// A device that was just made anew may be there under an index that has not been heard of yet.
void LinkController::deviceMissing( Operation & operation, std::string const & why ) {
   if ( scheduler_->now() < operation.patienceEnd ) {
      return operation.timer.start( milliseconds( 10 ) );
   }
   end( operation, Ending::noDevice, why );
}

void LinkController::lower( std::string const & name ) {
   if ( auto const config = store_.allIntfConfigDir->intfConfig( name ) ) {
      config->adminShutdownDelayedIs( false );
   }
}

void LinkController::end( Operation & operation, Ending ending, std::string const & why ) {
   auto & record = operation.record;
   if ( ending == Ending::aborted ) {
      lower( record.interface );
      if ( operation.phase == Operation::Phase::holding ) {
         record.held = inMs( scheduler_->now() - operation.sentAt );
      }
   }
   operation.phase = Operation::Phase::ended;
   operation.timer.stop();
   statusSm_->follow( record.interface, nullptr );
   record.ending = ending;
   record.why += ( record.why.empty() || why.empty() ? "" : "; " ) + why;

   auto & totals = totals_[ record.interface ];
   ++totals.shutdowns;
   totals.sent += record.sent;
   totals.failed += record.failed;
   totals.aborts += ending == Ending::aborted;
   if ( record.failed ) {
      totals.failReason = record.failReason;
   }
   history_.push_back( record );
   if ( ended_ ) {
      ended_( record );
   }
   if ( history_.size() > historyLimit ) {
      history_.pop_front();
   }
   // The operation may be on the stack below: it is freed from the loop.
   auto node = operations_.extract( record.interface );
   done_.push_back( std::move( node.mapped() ) );
   post_( [ this, alive = alive_ ] { *alive ? done_.clear() : void(); } );
   operation.step( ShutdownStep::ended );
}

} // namespace Valend
