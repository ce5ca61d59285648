#include "valend/shutdown/LinkController.h"

#include "valend/base/Errors.h"

#include <cerrno>

namespace Valend {

LinkController::LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                                Journal & journal, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                                Gantry::WorkQueue & work )
    : journal_( journal ), config_( config ), port_( port ), posted_( work, "link controller" ),
      links_( port, scheduler, [ this ]( auto const & place ) { setDownOutside( place ); } ),
      surroundings_{
         store,
         config,
         port,
         std::move( scheduler ),
         journal,
         Quill::make< DelayWatch >( store.statusDir,
                                    [ this ]( auto const & name ) { libraryChanged( name ); } ),
         [ this ]( auto const & place ) { links_.setDown( place ); },
         [ this ]( auto & shutdown ) { ended( shutdown ); } } {}

LinkController::~LinkController() = default;

// --- Requests ------------------------------------------------------------------------------------

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

void LinkController::resume( Recovered recovered ) {
   history_ = std::move( recovered.history );
   for ( auto & entry : recovered.unfinished ) {
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
   InterfaceDelay( surroundings_.store, name ).lowerFlag();
   try {
      if ( port_.up( place ) ) {
         return Enabled::alreadyUp;
      }
      port_.upIs( place, true );
   } catch ( Quill::ErrnoException const & e ) {
      bool const missing = e.number() == ENODEV || e.number() == ENOENT;
      throw missing ? Errors::noDevice( e.what() ) : Errors::linkFailed( e.what() );
   }
   links_.setUp( place );
   return Enabled::up;
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
      if ( auto * const shutdown = find( name ) ) { // else it was aborted
         shutdown->begin();
         break;
      }
   }
   if ( !queue_.empty() ) {
      posted_.post( [ this ] { beginNext(); } );
   }
}

void LinkController::libraryChanged( std::string const & name ) {
   posted_.post( [ this, name ] {
      if ( auto * const shutdown = find( name ) ) {
         shutdown->libraryChanged();
      }
   } );
}

void LinkController::ended( Shutdown & shutdown ) {
   // One of its functions is on the stack: it is destroyed from the loop.
   auto node = shutdowns_.extract( shutdown.record().interface );
   done_.push_back( std::move( node.mapped() ) );
   posted_.post( [ this ] { done_.clear(); } );
   remember( shutdown.record() );
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

void LinkController::linkSeen( LinkPlace const & place, std::optional< bool > up ) {
   posted_.post( [ this, place, up ] { links_.reported( place, up ); } );
}

void LinkController::setDownOutside( LinkPlace const & place ) {
   for ( auto const & [ name, interface ] : config_.interfaces ) {
      if ( placeOf( interface ) != place ) {
         continue;
      }
      if ( auto * const shutdown = find( name ) ) {
         shutdown->setDownOutside();
      } else {
         recordSetDownOutside( name, place );
      }
      return;
   }
}

void LinkController::recordSetDownOutside( std::string const & interface,
                                           LinkPlace const & place ) {
   links_.markWithoutGoodbye( place );
   JournalEntry entry;
   entry.phase = Phase::ended;
   entry.place = place;
   entry.requestedAt = journal_.uptime();
   entry.record.interface = interface;
   entry.record.by = ShutdownRecord::outside;
   entry.record.when = std::chrono::system_clock::now();
   entry.record.ending = ShutdownRecord::Ending::wentDown;
   entry.record.why = ShutdownRecord::setDownOutside;
   journal_.write( entry );
   remember( entry.record );
}

} // namespace Valend
