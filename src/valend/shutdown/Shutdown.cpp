#include "valend/shutdown/Shutdown.h"

#include "platform/quill/Fault.h"
#include "valend/kernel/Places.h"
#include "valend/shutdown/Recovery.h"

#include <cerrno>

namespace Valend {

using std::chrono::milliseconds;

namespace {

// How often to look again.
constexpr milliseconds readyInterval{ 5 };
constexpr milliseconds failedInterval{ 10 };

constexpr char const * otherOwner =
   "interface removed from the configuration, and its device belongs to another interface";

bool isMissing( Quill::ErrnoException const & e ) {
   return e.number() == ENODEV || e.number() == ENOENT;
}

Quill::FaultSource faultSource( char const * event ) {
   return { typeid( Shutdown ), "Shutdown", typeid( void ), event };
}

} // namespace

Shutdown::Shutdown( Surroundings const & surroundings, Settings::InterfaceConfig const & interface,
                    Request request )
    : surroundings_( surroundings ),
      state_( surroundings, interface, std::move( request ), [ this ] { timedOut(); } ),
      hold_( state_, observers_ ),
      link_( state_, observers_, [ this ]( auto const & answer ) { answered( answer ); } ) {
   state_.enter( Phase::requested, ShutdownState::noDeadline );
}

Shutdown::Shutdown( Surroundings const & surroundings, JournalEntry entry )
    : surroundings_( surroundings ),
      state_( surroundings, std::move( entry ), [ this ] { timedOut(); } ),
      hold_( state_, observers_ ),
      link_( state_, observers_, [ this ]( auto const & answer ) { answered( answer ); } ) {
   auto const phase = phaseAfterRestart( this->phase() );
   if ( phase == Phase::heldToDeadline ) {
      observers_.lastStepIs( ShutdownStep::delayed );
      state_.note( "valend restarted " + state_.intoDelay() );
      hold_.muteAgain();
      state_.enter( phase, state_.hold()->until );
   } else {
      state_.enter( phase, now() + readyTimeout );
   }
}

// --- Events --------------------------------------------------------------------------------------

// Every way in from the loop. Whatever `work` throws, the link goes down.
template < class Work > void Shutdown::guard( char const * event, Work const & work ) {
   try {
      work();
   } catch ( ... ) {
      auto const why = Quill::exceptionText();
      Quill::reportFault( faultSource( event ), record().interface );
      failOpen( why );
   }
}

// The handler of an exception should have little to fail in: the next turn sets the link down. Unless it was
// enabled.
void Shutdown::failOpen( std::string const & why ) {
   if ( phase() == Phase::ended ) {
      return;
   }
   if ( record().why.find( why ) == std::string::npos ) { // a retry may throw the same
      state_.note( why );
   }
   if ( phase() != Phase::settingDown && phase() != Phase::settingUp ) {
      state_.enter( Phase::settingDown, now() + ShutdownLink::downTimeout );
   }
   if ( link_.requested() ) {
      return; // its answer is to come
   }
   if ( state_.late() ) {
      end( Ending::failed, "" );
   } else {
      state_.lookAgain( failedInterval );
   }
}

void Shutdown::begin() {
   guard( "begin", [ this ] {
      switch ( phase() ) {
      case Phase::requested:
         return checkLink();
      case Phase::waiting:
         return waitForInterface();
      case Phase::settingDown:
         return setLinkDown();
      case Phase::settingUp:
         return setLinkUp();
      case Phase::heldToDeadline:
         return deviceSeen();
      case Phase::sending:
      case Phase::held:
      case Phase::flushing:
      case Phase::ended:
         return;
      }
   } );
}

void Shutdown::deviceSeen() {
   guard( "device", [ this ] { endedAsExpired(); } );
}

void Shutdown::libraryChanged() {
   guard( "delayed", [ this ] {
      if ( isHeld( phase() ) && hold_.libraryChanged() ) {
         setLinkDown();
      }
   } );
}

void Shutdown::setDownOutside() {
   guard( "setDownOutside", [ this ] {
      if ( isHeld( phase() ) || phase() == Phase::flushing ) {
         link_.noteSetDownOutside();
      }
   } );
}

void Shutdown::timedOut() {
   guard( "timer", [ this ] {
      switch ( phase() ) {
      case Phase::waiting:
         return waitForInterface();
      case Phase::sending:
         state_.note( "sending timed out" );
         return setLinkDown();
      case Phase::held:
         state_.note( "the delay did not end in time" );
         return flush();
      case Phase::heldToDeadline:
      case Phase::flushing:
         return flush();
      case Phase::settingDown:
         return setLinkDown();
      case Phase::settingUp:
         return setLinkUp();
      case Phase::requested:
      case Phase::ended:
         return;
      }
   } );
}

void Shutdown::enabled( std::string const & requester, EnableObserver observer ) {
   guard( "enabled", [ & ] {
      if ( observer ) {
         enablers_.push_back( std::move( observer ) );
      }
      if ( phase() == Phase::settingUp ) {
         return;
      }
      bool const same = requester == record().request.requester();
      auto const who = same ? std::string( "enabled " ) : "enabled by " + requester + " ";
      state_.note( who + ( state_.hold()
                              ? "after " + std::to_string( state_.held().count() ) + " ms"
                              : std::string( "before the delay began" ) ) );
      endIf( link_.enable() );
   } );
}

void Shutdown::configChanged() {
   guard( "configChanged", [ this ] {
      bool const moved = placeNow( surroundings_.config, record().interface, place() ) != place();
      if ( phase() == Phase::settingDown && moved && link_.requested() && link_.withdraw() ) {
         setLinkDown();
      }
   } );
}

void Shutdown::answered( LinkAnswer const & answer ) {
   guard( "answer", [ & ] { endIf( link_.take( answer ) ); } );
}

// --- Actions -------------------------------------------------------------------------------------

void Shutdown::waitForInterface() {
   state_.updatePlace(); // checkLink() looks at what it returns
   if ( endedAsExpired() ) {
      return;
   }
   auto const check = checkInterface( hold_.delay(), surroundings_.port, place() );
   if ( !check.settled && !state_.late() ) {
      return state_.lookAgain( readyInterval );
   }
   if ( !check.whyNoFrames.empty() ) {
      state_.note( "no frames sent after the restart: " + check.whyNoFrames );
   }
   checkLink();
}

void Shutdown::checkLink() {
   if ( !state_.updatePlace() ) {
      return end( Ending::noDevice, otherOwner );
   }
   try {
      if ( !surroundings_.port.up( place() ) ) {
         return end( Ending::alreadyDown, "" );
      }
   } catch ( Quill::ErrnoException const & e ) {
      if ( isMissing( e ) ) {
         return end( Ending::noDevice, e.what() );
      }
      state_.note( e.what() ); // take it to be up
   }
   if ( !hold_.delay().isReady() || hold_.sendFrames() ) {
      setLinkDown();
   }
}

void Shutdown::flush() {
   if ( hold_.flush() ) {
      setLinkDown();
   }
}

void Shutdown::setLinkDown() {
   if ( link_.requested() ) {
      return;
   }
   if ( !state_.updatePlace() ) {
      return end( Ending::noDevice, otherOwner );
   }
   if ( !endedAsExpired() ) {
      link_.setDown( record().resumed ? readyTimeout : ShutdownLink::downTimeout );
   }
}

void Shutdown::setLinkUp() {
   if ( !link_.requested() ) {
      link_.setUp();
   }
}

void Shutdown::endIf( ShutdownLink::MaybeOutcome const & outcome ) {
   if ( outcome ) {
      end( outcome->ending, outcome->why );
   }
}

void Shutdown::end( Ending ending, std::string const & why ) {
   auto & record = state_.record();
   if ( isHeld( phase() ) ) {
      record.held = state_.held();
   }
   record.ending = ending;
   record.total = state_.total();
   state_.note( why );
   link_.end();
   hold_.end( ending == Ending::aborted );
   state_.enter( Phase::ended, ShutdownState::noDeadline );
   surroundings_.delayWatch->unfollow( hold_.delay().intfId() );
   if ( ending == Ending::aborted || ending == Ending::expired ) {
      hold_.delay().lowerFlag();
   }
   auto const name = [ & ] { return record.interface; };
   Quill::underFaultBoundary( faultSource( "ended" ), name,
                              [ & ] { surroundings_.ended( *this ); } );
   observers_.tell( ShutdownStep::ended, record );
   for ( auto const & enabler : enablers_ ) {
      Quill::underFaultBoundary( faultSource( "enabled" ), name,
                                 [ & ] { enabler( link_.enableResult() ); } );
   }
}

// The link was set up while valend was not running: it is not what was to go down any more.
bool Shutdown::endedAsExpired() {
   auto const change = state_.changeSinceRestart();
   if ( !change.empty() ) {
      end( Ending::expired, change );
   }
   return !change.empty();
}

} // namespace Valend
