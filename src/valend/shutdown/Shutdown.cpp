#include "valend/shutdown/Shutdown.h"

#include <algorithm>
#include <cerrno>

namespace Valend {

using std::chrono::milliseconds;

namespace {

milliseconds inMs( Gantry::Time time ) {
   return std::chrono::duration_cast< milliseconds >( time );
}

constexpr char const * otherOwner =
   "the interface is not configured any more, and its device is another's now";

LinkPlace placeOf( Settings::Config const & config, Settings::InterfaceConfig const & interface ) {
   return { config.netNsOf( interface.vrf ), interface.device };
}

bool isMissing( Quill::ErrnoException const & e ) {
   return e.number() == ENODEV || e.number() == ENOENT;
}

} // namespace

Shutdown::Shutdown( Surroundings const & surroundings, Settings::InterfaceConfig const & interface,
                    std::string by )
    : surroundings_( surroundings ), intfId_( interface.name ),
      timer_( surroundings.scheduler, "shutdown::" + interface.name, [ this ] { timerRan(); } ) {
   entry_.place = placeOf( surroundings.config, interface );
   entry_.askedAt = surroundings.journal.uptime();
   entry_.record.interface = interface.name;
   entry_.record.by = std::move( by );
   entry_.record.when = std::chrono::system_clock::now();
   enter( Phase::asked );
}

Shutdown::Shutdown( Surroundings const & surroundings, JournalEntry entry )
    : surroundings_( surroundings ), entry_( std::move( entry ) ),
      intfId_( entry_.record.interface ),
      timer_( surroundings.scheduler, "shutdown::" + entry_.record.interface,
              [ this ] { timerRan(); } ) {
   constexpr milliseconds longestDelay{ 65535 };
   auto const uptime = surroundings.journal.uptime();
   sentAt_ = now() + ( entry_.sentAt - uptime );
   heldUntil_ = now() + std::min< Gantry::Time >( entry_.heldUntil - uptime, longestDelay );
   entry_.record.resumed = true;
   if ( entry_.phase == Phase::held ) {
      lastStep_ = ShutdownStep::delayed;
   }
}

// --- What others do ------------------------------------------------------------------------------

void Shutdown::join( ShutdownObserver observer ) {
   if ( lastStep_ ) {
      observer( *lastStep_, record() );
   }
   observers_.push_back( std::move( observer ) );
}

void Shutdown::enabled( std::string const & by ) {
   auto const who = by == record().by ? "enabled " : "enabled by " + by + " ";
   end( Ending::aborted, who + ( lastStep_ ? into() : "before it began" ) );
}

void Shutdown::wentDown() {
   std::string const why = "somebody else set the link down ";
   if ( phase() == Phase::held ) {
      end( Ending::down, why + into() );
   } else if ( phase() == Phase::flushing ) {
      note( why + into() );
   }
}

std::optional< milliseconds > Shutdown::remaining() const {
   if ( phase() != Phase::held ) {
      return std::nullopt;
   }
   return std::max( milliseconds( 0 ), std::chrono::ceil< milliseconds >( heldUntil_ - now() ) );
}

// --- The road ------------------------------------------------------------------------------------

void Shutdown::begin() {
   if ( std::exchange( begun_, true ) ) {
      return; // asked for, called off and asked for again within a turn
   }
   try {
      entry_.record.resumed ? resume() : go();
   } catch ( std::exception const & e ) {
      if ( phase() < Phase::lowering ) { // whatever it is, the link goes down
         note( e.what() );
         linkDown();
      }
   }
}

void Shutdown::enter( Phase phase ) {
   auto const ahead = surroundings_.journal.uptime() - now(); // of the scheduler's clock
   entry_.phase = phase;
   entry_.sentAt = sentAt_ + ahead;
   entry_.heldUntil = heldUntil_ + ahead;
   surroundings_.journal.write( entry_ );
}

void Shutdown::resume() {
   patienceEnd_ = now() + startPatience;
   switch ( phase() ) {
   case Phase::asked:
   case Phase::sending:
      awaiting_ = true;
      return await();
   case Phase::held:
      ownClock_ = true;
      note( "the agent was started anew " + into() );
      return timer_.start( heldUntil_ - now() );
   case Phase::flushing:
   case Phase::lowering:
   case Phase::ended:
      return linkDown();
   }
}

// The devices are not known yet, and the interface is not ready.
void Shutdown::await() {
   follow(); // what it says is heeded below
   auto const device = surroundings_.port.device( place() );
   auto const status = surroundings_.store.statusDir->intfStatus( intfId_ );
   bool const ready = status && status->shouldDelay();
   auto const never = lostForGood();
   bool const over = now() >= patienceEnd_;
   if ( !over && !( device && ( ready || !never.empty() || !device->up ) ) ) {
      return timer_.start( milliseconds( 5 ) );
   }
   awaiting_ = false;
   if ( device && device->up && !ready ) {
      note( "nothing was sent after the agent was started anew: " +
            ( never.empty() ? "the interface is not ready" : never ) );
   }
   go();
}

// The configuration may have given the interface another device or VRF since the shutdown was asked
// for. False when it has it no longer, and its device is another interface's now.
bool Shutdown::follow() {
   auto const & config = surroundings_.config;
   auto const own = config.interfaces.find( record().interface );
   if ( own != config.interfaces.end() ) {
      entry_.place = placeOf( config, own->second );
      return true;
   }
   return std::none_of( config.interfaces.begin(), config.interfaces.end(), [ & ]( auto & other ) {
      return placeOf( config, other.second ) == place();
   } );
}

void Shutdown::go() {
   if ( !follow() ) {
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
      note( e.what() ); // it is taken for up
   }
   auto const status = surroundings_.store.statusDir->intfStatus( intfId_ );
   status && status->shouldDelay() ? raise( status ) : linkDown();
}

void Shutdown::raise( Quill::Ptr< Valen::Status::IntfStatus > status ) {
   if ( phase() == Phase::sending ) { // and the first deadline stands
      note( "sent again: the agent was started anew while it sent" );
      ownClock_ = true;
   } else {
      sentAt_ = now();
      heldUntil_ = sentAt_ + milliseconds( surroundings_.config.shutdownDelayMs.value_or( 0 ) );
   }
   status_ = status;
   entry_.record.withDelay = true;
   lowerFlag(); // somebody else may have set the link up since the last shutdown
   timer_.start( heldUntil_ + margin - now() );
   enter( Phase::sending );
   send();
   enter( Phase::held );
   step( ShutdownStep::sent );
   if ( phase() == Phase::held ) { // else an observer called it off
      hold();
   }
}

void Shutdown::send() {
   auto & record = entry_.record;
   auto & port = surroundings_.port;
   auto const agents = agentsInOrder();
   auto const before = port.counters( place().netNs );
   auto const begun = now();
   surroundings_.store.allIntfConfigDir->intfConfig( intfId_ )->adminShutdownDelayedIs( true );
   record.sending = std::chrono::duration_cast< std::chrono::microseconds >( now() - begun );
   auto const after = port.counters( place().netNs );
   record.sent = after.sent - before.sent;
   record.failed = after.failed - before.failed;
   countRefused( agents );
}

// The agent of each frame, in the order in which the library sends them.
std::vector< std::string > Shutdown::agentsInOrder() const {
   std::vector< std::string > agents;
   auto const intf = surroundings_.store.allIntf->intf( intfId_ );
   if ( !intf || !intf->intfMessage() ) {
      return agents;
   }
   for ( auto const & entry : intf->intfMessage()->message() ) {
      agents.insert( agents.end(), entry.value->messages(), entry.key.stdString() );
   }
   return agents;
}

void Shutdown::countRefused( std::vector< std::string > const & agents ) {
   auto & record = entry_.record;
   record.agents.clear();
   for ( auto const & agent : agents ) { // each one's frames go out together
      if ( record.agents.empty() || record.agents.back().agent != agent ) {
         record.agents.push_back( { agent, 0, {} } );
      }
      ++record.agents.back().sent;
   }
   for ( auto const & refused : surroundings_.port.refused( place() ) ) {
      record.failReason = refused.why;
      if ( refused.packet >= agents.size() ) {
         continue;
      }
      auto const found =
         std::find_if( record.agents.begin(), record.agents.end(), [ & ]( auto const & each ) {
            return each.agent == agents[ refused.packet ];
         } );
      --found->sent;
      ++found->refused[ refused.number ];
   }
}

void Shutdown::hold() {
   if ( !status_->delayed() ) {
      note( "the library did not hold the shutdown" );
      return flush();
   }
   surroundings_.delayWatch->follow( intfId_, status_ );
   timer_.start( heldUntil_ + ( ownClock_ ? milliseconds( 0 ) : margin ) - now() );
   step( ShutdownStep::delayed );
}

void Shutdown::statusChanged() {
   if ( phase() != Phase::held || !status_ ) {
      return;
   }
   auto const status = surroundings_.store.statusDir->intfStatus( intfId_ );
   if ( status && status_ == status ) {
      return status->delayed() ? void() : flush();
   }
   auto const forGood = lostForGood();
   if ( record().why.empty() ) {
      note( "readiness was lost " + into() + ( forGood.empty() ? "" : ": " + forGood ) );
   }
   if ( !forGood.empty() || now() >= heldUntil_ ) {
      return flush();
   }
   timer_.start( heldUntil_ - now() );
}

// Why the interface cannot become ready again before its deadline; empty when it may.
std::string Shutdown::lostForGood() const {
   if ( !surroundings_.store.configDir->globalConfig() ) {
      return "the feature was switched off";
   }
   auto const config = surroundings_.store.allIntfConfigDir->intfConfig( intfId_ );
   if ( !config ) {
      return "the interface is not configured any more";
   }
   return config->adminShutdownDelaySupported() ? "" : "the delay is not supported any more";
}

void Shutdown::timerRan() {
   if ( awaiting_ ) {
      return await();
   }
   switch ( phase() ) {
   case Phase::asked:
   case Phase::sending:
      note( "the sending did not come to an end" );
      return linkDown();
   case Phase::held:
      if ( record().why.empty() && !ownClock_ ) {
         note( "the library did not let go in time" );
      }
      return flush();
   case Phase::flushing:
      return flush();
   case Phase::lowering:
      return linkDown();
   case Phase::ended:
      return;
   }
}

void Shutdown::flush() {
   if ( phase() != Phase::flushing ) {
      patienceEnd_ = now() + flushPatience;
      entry_.record.held = inMs( now() - sentAt_ );
      enter( Phase::flushing );
   }
   auto const bytes = surroundings_.port.outstandingBytes( place().netNs );
   if ( bytes && now() < patienceEnd_ ) {
      return timer_.start( milliseconds( 2 ) );
   }
   entry_.record.unflushedBytes = bytes;
   linkDown();
}

void Shutdown::linkDown() {
   if ( !follow() ) {
      return end( Ending::noDevice, otherOwner );
   }
   if ( phase() != Phase::lowering ) {
      patienceEnd_ = now() + ( record().resumed ? startPatience : devicePatience );
      enter( Phase::lowering );
   }
   try {
      surroundings_.port.upIs( place(), false );
   } catch ( Quill::ErrnoException const & e ) {
      return notSetDown( e );
   }
   surroundings_.linkSetDown( place() );
   end( Ending::down, "" );
}

// A device that was just made anew may be there under an index that has not been heard of yet; and
// what the kernel refuses now it may do in a moment.
void Shutdown::notSetDown( Quill::ErrnoException const & e ) {
   if ( e.number() != EPERM && now() < patienceEnd_ ) {
      return timer_.start( milliseconds( 10 ) );
   }
   end( isMissing( e ) ? Ending::noDevice : Ending::failed, e.what() );
}

void Shutdown::lowerFlag() {
   if ( auto const config = surroundings_.store.allIntfConfigDir->intfConfig( intfId_ ) ) {
      config->adminShutdownDelayedIs( false );
   }
}

void Shutdown::end( Ending ending, std::string const & why ) {
   auto & record = entry_.record;
   if ( phase() == Phase::held ) {
      record.held = inMs( now() - sentAt_ );
   }
   timer_.stop();
   surroundings_.delayWatch->follow( intfId_, nullptr );
   record.ending = ending;
   record.total = inMs( surroundings_.journal.uptime() - entry_.askedAt );
   note( why );
   enter( Phase::ended );
   if ( ending == Ending::aborted ) {
      lowerFlag();
   }
   surroundings_.ended( *this );
   step( ShutdownStep::ended );
}

void Shutdown::note( std::string const & why ) {
   auto & all = entry_.record.why;
   all += ( all.empty() || why.empty() ? "" : "; " ) + why;
}

void Shutdown::step( ShutdownStep next ) {
   lastStep_ = next;
   for ( auto const & observer : std::vector( observers_ ) ) { // it may bring another one
      observer( next, record() );
   }
}

// "120 ms into the delay"
std::string Shutdown::into() const {
   return std::to_string( inMs( now() - sentAt_ ).count() ) + " ms into the delay";
}

} // namespace Valend
