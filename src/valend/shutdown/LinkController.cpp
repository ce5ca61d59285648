#include "valend/shutdown/LinkController.h"

#include "valend/base/Errors.h"

#include <algorithm>

namespace Valend {

using namespace std::string_literals;

LinkController::LinkController( Store & store, Settings::Config const & config, LinkPort & port,
                                SpeakerPort & speakers, Journal & journal, Conditions & conditions,
                                Quill::Ptr< Gantry::TaskScheduler > scheduler,
                                Gantry::WorkQueue & work )
    : journal_( journal ), config_( config ), interfaceAt_( config ), port_( port ),
      posted_( work, "link controller" ), begins_( work, "link controller" ),
      links_( port, scheduler, [ this ]( auto const & place ) { setDownOutside( place ); } ),
      surroundings_{
         store,
         config,
         port,
         speakers,
         std::move( scheduler ),
         journal,
         conditions,
         Quill::make< DelayWatch >( store.statusDir,
                                    [ this ]( auto const & name ) { libraryChanged( name ); } ),
         [ this ]( auto const & place ) { links_.setDown( place ); },
         [ this ]( auto const & place ) { links_.setUp( place ); },
         [ this ]( auto & shutdown ) { ended( shutdown ); } },
      goodbyeSurroundings_{ store, port, surroundings_.scheduler,
                            [ this ]( auto & goodbye ) { ended( goodbye ); } },
      enablings_( port, surroundings_.scheduler,
                  [ this ]( auto const & name, auto const & place, auto const & answer ) {
                     setUpAnswered( name, place, answer );
                  } ),
      repeats_( journal, surroundings_.scheduler ) {}

LinkController::~LinkController() = default;

// --- Requests ------------------------------------------------------------------------------------

Settings::InterfaceConfig const & LinkController::interface( std::string const & name ) const {
   auto const found = config_.interfaces.find( name );
   if ( found == config_.interfaces.end() ) {
      throw Errors::noSuchInterface( name );
   }
   return found->second;
}

Shutdown * LinkController::find( std::string const & interface ) const {
   auto const found = shutdowns_.find( interface );
   return found == shutdowns_.end() ? nullptr : found->second.get();
}

void LinkController::shutdown( std::string const & name, Request request,
                               ShutdownObserver observer ) {
   auto * shutdown = find( name );
   if ( !shutdown ) {
      auto & place = shutdowns_[ interface( name ).name ];
      place =
         std::make_unique< Shutdown >( surroundings_, interface( name ), std::move( request ) );
      shutdown = place.get();
      enqueueShutdown( name );
   }
   if ( observer ) {
      shutdown->join( std::move( observer ) );
   }
}

std::string LinkController::goodbye( std::string const & name, Request request,
                                     ShutdownObserver observer ) {
   InterfaceDelay const delay( surroundings_.store, interface( name ).name );
   if ( find( name ) ) {
      return "shutdown in progress";
   }
   if ( !delay.isReady() ) {
      return delay.whyNotReady();
   }
   auto & place = goodbyes_[ name ];
   if ( !place ) {
      ShutdownRecord record;
      record.interface = name;
      record.place = placeOf( config_, interface( name ) );
      record.request = std::move( request );
      place = std::make_unique< Goodbye >( goodbyeSurroundings_, std::move( record ) );
      begins_.add( [ this, name ] {
         auto const found = goodbyes_.find( name );
         if ( found == goodbyes_.end() ) {
            return false;
         }
         found->second->begin();
         return true;
      } );
   }
   place->join( std::move( observer ) );
   return "";
}

void LinkController::resume( Recovered recovered ) {
   history_ = std::move( recovered.history );
   for ( auto const & entry : recovered.ended ) {
      remember( entry.id, entry.record );
   }
   for ( auto & entry : recovered.unfinished ) {
      auto const name = entry.record.interface;
      if ( !find( name ) ) {
         shutdowns_[ name ] = std::make_unique< Shutdown >( surroundings_, std::move( entry ) );
         unseen_.insert( name );
         enqueueShutdown( name );
      }
   }
}

void LinkController::enable( std::string const & name, std::string const & requester,
                             EnableObserver observer ) {
   if ( auto * const shutdown = find( name ) ) {
      return shutdown->enabled( requester, std::move( observer ) );
   }
   auto const place = placeOf( config_, interface( name ) );
   if ( enablings_.running( name ) ) {
      return enablings_.join( name, std::move( observer ) );
   }
   InterfaceDelay( surroundings_.store, name ).lowerFlag();
   try {
      if ( !port_.up( place ) ) {
         return enablings_.begin( name, place, std::move( observer ) );
      }
   } catch ( Quill::ErrnoException const & e ) {
      return observer( whyNotUp( { e.number(), e.what(), false } ) );
   }
   observer( Enabled::alreadyUp );
}

void LinkController::setUpAnswered( std::string const & name, LinkPlace const & place,
                                    LinkAnswer const & answer ) {
   if ( answer.error == 0 ) {
      links_.setUp( place );
   }
   if ( find( name ) ) { // requested meanwhile
      enqueueShutdown( name );
   }
}

void LinkController::configChanged() {
   interfaceAt_.configChanged();
   std::vector< Shutdown * > running; // one that ends leaves the map
   for ( auto const & [ name, shutdown ] : shutdowns_ ) {
      running.push_back( shutdown.get() );
   }
   for ( auto * const shutdown : running ) {
      shutdown->configChanged();
   }
}

std::optional< std::chrono::milliseconds >
LinkController::remaining( std::string const & name ) const {
   auto const * const shutdown = find( name );
   return shutdown ? shutdown->remaining() : std::nullopt;
}

std::string LinkController::requestId( std::string const & name ) const {
   auto const * const shutdown = find( name );
   return shutdown ? shutdown->record().request.id : "";
}

std::string LinkController::whyRetrying( std::string const & name ) const {
   auto const * const shutdown = find( name );
   return shutdown ? shutdown->whyRetrying() : "";
}

std::vector< std::string > LinkController::stop() {
   port_.stop();
   std::vector< std::string > lines;
   for ( auto const & [ name, shutdown ] : shutdowns_ ) {
      lines.push_back( pendingLine( *shutdown ) );
   }
   for ( auto & line : enablings_.pendingLines() ) {
      lines.push_back( std::move( line ) );
   }
   return lines;
}

std::string LinkController::pendingLine( Shutdown const & shutdown ) const {
   auto const held = shutdown.remaining();
   auto const lost = journal_.conditionText();
   auto const & record = shutdown.record();
   auto const * const direction = shutdown.phase() == Phase::settingUp ? "up again" : "down";
   return record.interface + ": shutdown by " + record.request.requester() + " in progress" +
          ( held ? ", link held for another " + std::to_string( held->count() ) + " ms" : "" ) +
          ( shutdown.changing() ? ", link being set " + ( direction + " at this moment"s ) : "" ) +
          ( lost.empty()
               ? "; resumed when valend starts, unless that is more than " +
                    std::to_string( expiry.count() ) + " s after its delay"
               : "; lost, link " + ( shutdown.changing() ? "not looked after"s : "stays up"s ) +
                    ": " + lost );
}

// --- Shutdowns -----------------------------------------------------------------------------------

void LinkController::enqueueShutdown( std::string const & name ) {
   begins_.add( [ this, name ] {
      auto * const shutdown = find( name );
      if ( !shutdown || enablings_.running( name ) ) {
         return false; // it was aborted, or begins when the link is up
      }
      shutdown->begin();
      return true;
   } );
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
   unseen_.erase( shutdown.record().interface );
   remember( shutdown.id(), shutdown.record() );
}

void LinkController::ended( Goodbye & goodbye ) {
   auto node = goodbyes_.extract( goodbye.record().interface );
   done_.push_back( std::move( node.mapped() ) );
   posted_.post( [ this ] { done_.clear(); } );
   recordEnded( goodbye.record() );
}

// In the journal as well, for what was not written there while it was in progress.
void LinkController::recordEnded( ShutdownRecord const & record ) {
   JournalEntry entry;
   entry.phase = Phase::ended;
   entry.requestedAt = journal_.uptime();
   entry.record = record;
   journal_.write( entry );
   remember( entry.id, record );
}

void LinkController::remember( U64 id, ShutdownRecord const & record ) {
   history_.add( id, record );
   tellEnded( record );
}

void LinkController::tellEnded( ShutdownRecord const & record ) {
   statistics_.add( record );
   if ( ended_ ) {
      ended_( record );
   }
}

// --- Links ---------------------------------------------------------------------------------------

void LinkController::linkSeen( LinkPlace const & place, LinkSeen seen ) {
   posted_.post( [ this, place, seen ] { linkReported( place, seen ); } );
}

void LinkController::linkReported( LinkPlace const & place, LinkSeen seen ) {
   links_.reported( place, seen );
   auto const resumed = std::find_if( unseen_.begin(), unseen_.end(), [ & ]( auto const & name ) {
      return find( name )->place() == place;
   } );
   if ( resumed != unseen_.end() ) {
      auto * const shutdown = find( *resumed );
      unseen_.erase( resumed );
      shutdown->deviceSeen();
   }
}

void LinkController::setDownOutside( LinkPlace const & place ) {
   auto const * const interface = interfaceAt_.find( place );
   if ( !interface ) {
      return;
   }
   if ( auto * const shutdown = find( interface->name ) ) {
      shutdown->setDownOutside();
   } else {
      recordSetDownOutside( interface->name, place );
   }
}

void LinkController::recordSetDownOutside( std::string const & interface,
                                           LinkPlace const & place ) {
   links_.markWithoutGoodbye( place );
   ShutdownRecord record;
   record.interface = interface;
   record.place = place;
   record.request.by = ShutdownRecord::outside;
   record.when = std::chrono::system_clock::now();
   record.ending = ShutdownRecord::Ending::wentDown;
   record.why = ShutdownRecord::setDownOutside;
   if ( auto const repeated = history_.repeat( record ) ) {
      repeats_.repeated( *repeated );
      tellEnded( record );
   } else {
      recordEnded( record );
   }
}

} // namespace Valend
