#include "valend/shutdown/LinkController.h"

#include "valend/base/Errors.h"

#include <cerrno>

namespace Valend {

using Ending = ShutdownRecord::Ending;

LinkController::LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                                Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                                Gantry::WorkQueue & work )
    : journal_( journal ), config_( config ), port_( port ), posted_( work, "link controller" ),
      surroundings_{ store,
                     config,
                     port,
                     std::move( scheduler ),
                     journal,
                     Quill::make< DelayWatch >(
                        store.statusDir, [ this ]( auto const & name ) { statusChanged( name ); } ),
                     [ this ]( auto const & place ) { ownChange( place, false ); },
                     [ this ]( auto & shutdown ) { ended( shutdown ); } } {}

LinkController::~LinkController() = default;

// --- What is asked -------------------------------------------------------------------------------

Settings::InterfaceConfig const & LinkController::interface( std::string const & name ) const {
   auto const found = config_.interfaces.find( name );
   if ( found == config_.interfaces.end() ) {
      throw Errors::noSuchInterface( name );
   }
   return found->second;
}

LinkPlace LinkController::placeOf( Settings::InterfaceConfig const & interface ) const {
   return { config_.netNsOf( interface.vrf ), interface.device };
}

Shutdown * LinkController::find( std::string const & interface ) const {
   auto const found = shutdowns_.find( interface );
   return found == shutdowns_.end() ? nullptr : found->second.get();
}

void LinkController::shutdown( std::string const & name, std::string by,
                               ShutdownObserver observer ) {
   auto * shutdown = find( name );
   if ( !shutdown ) {
      auto & place = shutdowns_[ interface( name ).name ];
      place = std::make_unique< Shutdown >( surroundings_, interface( name ), std::move( by ) );
      shutdown = place.get();
      enqueue( name );
   }
   if ( observer ) {
      shutdown->join( std::move( observer ) );
   }
}

void LinkController::resume( Journal::Content content ) {
   history_ = std::move( content.history );
   for ( auto & entry : content.running ) {
      auto const name = entry.record.interface;
      if ( !find( name ) ) {
         shutdowns_[ name ] = std::make_unique< Shutdown >( surroundings_, std::move( entry ) );
         enqueue( name );
      }
   }
}

LinkController::Enabled LinkController::enable( std::string const & name, std::string const & by ) {
   if ( auto * const shutdown = find( name ) ) {
      shutdown->enabled( by );
      return Enabled::aborted;
   }
   auto const place = placeOf( interface( name ) );
   if ( auto const config = surroundings_.store.allIntfConfigDir->intfConfig( name ) ) {
      config->adminShutdownDelayedIs( false );
   }
   try {
      bool const wasUp = port_.up( place );
      if ( !wasUp ) {
         port_.upIs( place, true );
         ownChange( place, true );
      }
      return wasUp ? Enabled::alreadyUp : Enabled::up;
   } catch ( Quill::ErrnoException const & e ) {
      bool const missing = e.number() == ENODEV || e.number() == ENOENT;
      throw missing ? Errors::noDevice( e.what() ) : Errors::linkFailed( e.what() );
   }
}

std::optional< std::chrono::milliseconds >
LinkController::remaining( std::string const & name ) const {
   auto const * const shutdown = find( name );
   return shutdown ? shutdown->remaining() : std::nullopt;
}

// --- Shutdowns -----------------------------------------------------------------------------------

void LinkController::enqueue( std::string const & name ) {
   queue_.push_back( name );
   if ( queue_.size() == 1 ) {
      posted_.post( [ this ] { beginNext(); } );
   }
}

void LinkController::beginNext() {
   while ( !queue_.empty() ) {
      auto const name = queue_.front();
      queue_.pop_front();
      if ( auto * const shutdown = find( name ) ) { // else it was called off
         shutdown->begin();
         break;
      }
   }
   if ( !queue_.empty() ) {
      posted_.post( [ this ] { beginNext(); } );
   }
}

void LinkController::statusChanged( std::string const & name ) {
   posted_.post( [ this, name ] {
      if ( auto * const shutdown = find( name ) ) {
         shutdown->statusChanged();
      }
   } );
}

void LinkController::ended( Shutdown & shutdown ) {
   remember( shutdown.record() );
   // It may be on the stack below: it is freed from the loop.
   auto node = shutdowns_.extract( shutdown.record().interface );
   done_.push_back( std::move( node.mapped() ) );
   posted_.post( [ this ] { done_.clear(); } );
}

void LinkController::remember( ShutdownRecord const & record ) {
   statistics_.add( record );
   history_.push_back( record );
   if ( history_.size() > historyLimit ) {
      history_.pop_front();
   }
   if ( ended_ ) {
      ended_( record );
   }
}

// --- Links ---------------------------------------------------------------------------------------

void LinkController::ownChange( LinkPlace const & place, bool up ) {
   links_[ place ] = { up, false, surroundings_.scheduler->now() };
}

bool LinkController::downWithoutGoodbye( LinkPlace const & place ) const {
   auto const found = links_.find( place );
   return found != links_.end() && found->second.withoutGoodbye;
}

void LinkController::linkSeen( LinkPlace const & place, std::optional< bool > up ) {
   posted_.post( [ this, place, up ] { linkChanged( place, up ); } );
}

void LinkController::linkChanged( LinkPlace const & place, std::optional< bool > up ) {
   if ( !up ) {
      links_.erase( place );
      return;
   }
   auto const [ found, added ] = links_.try_emplace( place, Link{ *up, false, std::nullopt } );
   auto & link = found->second;
   if ( added || link.up == *up || outdated( place, link, *up ) ) {
      return;
   }
   link = { *up, false, std::nullopt };
   if ( !*up ) {
      wentDown( place );
   }
}

// What is heard may be older than what the agent has done since: then the kernel is asked.
bool LinkController::outdated( LinkPlace const & place, Link const & link, bool up ) {
   if ( !link.ownAt || surroundings_.scheduler->now() > *link.ownAt + ownEcho ) {
      return false;
   }
   try {
      return port_.up( place ) != up;
   } catch ( Quill::ErrnoException const & ) {
      return true; // it is gone, which is heard of next
   }
}

void LinkController::wentDown( LinkPlace const & place ) {
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      if ( placeOf( interface ) != place ) {
         continue;
      }
      if ( auto * const shutdown = find( name ) ) {
         return shutdown->wentDown();
      }
      links_[ place ].withoutGoodbye = true;
      JournalEntry entry;
      entry.phase = JournalEntry::Phase::ended;
      entry.place = place;
      entry.askedAt = journal_.uptime();
      entry.record.interface = name;
      entry.record.by = "somebody else";
      entry.record.when = std::chrono::system_clock::now();
      entry.record.ending = Ending::wentDown;
      entry.record.why = "somebody else set the link down";
      journal_.write( entry );
      return remember( entry.record );
   }
}

} // namespace Valend
