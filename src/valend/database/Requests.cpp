#include "valend/database/Requests.h"

#include "valend/base/Log.h"

#include <utility>

namespace Valend {

namespace {

// The interface of a key; nothing if it is not one of a request.
std::optional< std::string > interfaceOf( std::string const & key ) {
   std::string const prefix = Requests::prefix;
   return key.starts_with( prefix ) ? std::optional( key.substr( prefix.size() ) ) : std::nullopt;
}

std::string resultOf( ShutdownRecord const & record ) {
   using Ending = ShutdownRecord::Ending;
   switch ( record.ending ) {
   case Ending::down:
   case Ending::aborted:
   case Ending::alreadyDown:
   case Ending::running:
      return record.endingText();
   default:
      return std::string( "failed: " ) + record.endingText() +
             ( record.why.empty() ? "" : ", " + record.why );
   }
}

std::string resultOf( EnableResult const & result ) {
   if ( auto const * const refusal = std::get_if< Refusal >( &result ) ) {
      return std::string( "failed: " ) + refusal->what();
   }
   switch ( std::get< Enabled >( result ) ) {
   case Enabled::up:
      return "up";
   case Enabled::alreadyUp:
      return "already-up";
   case Enabled::aborted:
      break;
   }
   return "aborted";
}

} // namespace

Requests::Requests( Surroundings surroundings, Gantry::WorkQueue & work,
                    Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : surroundings_( std::move( surroundings ) ), slices_( work, scheduler, "requests" ),
      timer_( std::move( scheduler ), "requests", [ this ] { waitedLongEnough(); } ) {}

// --- What the previous run left ------------------------------------------------------------------

void Requests::resume() {
   for ( auto const & [ interface, kept ] : surroundings_.file.read() ) {
      auto const field = [ &fields = kept ]( char const * name ) {
         auto const found = fields.find( name );
         return found == fields.end() ? std::string() : found->second;
      };
      auto & known = known_[ interface ];
      known = { field( "id" ), field( "result" ), field( "open" ) == "yes", false };
      if ( known.open ) {
         resumeOne( interface, known );
      }
      tell( interface, known );
   }
}

void Requests::resumeOne( std::string const & interface, Known & known ) {
   auto & controller = surroundings_.controller;
   if ( controller.requestId( interface ) == known.id ) {
      known.begun = true;
      Request request;
      request.id = known.id;
      return shutDown( interface, request ); // which joins it
   }
   auto const & history = controller.history();
   for ( auto record = history.rbegin(); record != history.rend(); ++record ) {
      if ( record->interface == interface && record->request.id == known.id ) {
         return end( interface, known.id, resultOf( *record ) );
      }
   }
}

// --- What is wanted ------------------------------------------------------------------------------

void Requests::entityIs( std::string const & key, Settings::Fields const & fields ) {
   auto const interface = interfaceOf( key );
   if ( !interface ) {
      return;
   }
   auto const want = wantOf( fields, surroundings_.maxDelayMs() );
   waiting_.erase( *interface );
   if ( want.id.empty() ) { // it cannot be told from others, so it is not recorded
      return tell( *interface, { "", "rejected: " + want.why } );
   }
   auto const known = known_.find( *interface );
   if ( known != known_.end() && known->second.id == want.id &&
        ( known->second.begun || !known->second.open ) ) {
      return;
   }
   decide( *interface, want );
}

void Requests::entityGone( std::string const & key ) {
   auto const interface = interfaceOf( key );
   if ( !interface ) {
      return;
   }
   waiting_.erase( *interface );
   auto const known = known_.find( *interface );
   if ( known != known_.end() && !known->second.open && !isConfigured( *interface ) ) {
      known_.erase( known ); // so that what is kept is bounded
      surroundings_.file.save( *interface, std::nullopt );
   }
}

bool Requests::isConfigured( std::string const & interface ) const {
   return surroundings_.config.interfaces.contains( interface );
}

void Requests::decide( std::string const & interface, Want const & want ) {
   if ( want.why.empty() && isConfigured( interface ) ) {
      return accept( interface, want );
   }
   if ( want.why.empty() ) {
      waiting_.insert_or_assign( interface, want );
      return timer_.start( graceTime );
   }
   known_[ interface ] = { want.id };
   end( interface, want.id, "rejected: " + want.why );
}

void Requests::configSettled() {
   auto const waiting = waiting_; // accepting removes
   for ( auto const & [ interface, want ] : waiting ) {
      if ( isConfigured( interface ) ) {
         waiting_.erase( interface );
         accept( interface, want );
      }
   }
}

void Requests::waitedLongEnough() {
   if ( !surroundings_.settled() ) {
      return timer_.start( graceTime );
   }
   configSettled();
   for ( auto const & [ interface, want ] : std::exchange( waiting_, {} ) ) {
      known_[ interface ] = { want.id };
      end( interface, want.id, "rejected: no such interface" );
   }
}

// --- Acting --------------------------------------------------------------------------------------

void Requests::accept( std::string const & interface, Want const & want ) {
   auto & known = known_[ interface ];
   known = { want.id };
   save( interface, known );
   surroundings_.file.whenSaved( [ this, interface, want ] {
      slices_.add( [ this, interface, want ] {
         act( interface, want );
         return false;
      } );
   } );
}

void Requests::act( std::string const & interface, Want const & want ) {
   auto const known = known_.find( interface );
   if ( known == known_.end() || known->second.id != want.id ) {
      return; // replaced meanwhile
   }
   try {
      if ( want.up ) {
         setUp( interface, want.request );
      } else {
         shutDown( interface, want.request );
      }
   } catch ( Refusal const & e ) {
      end( interface, want.id, std::string( "rejected: " ) + e.what() );
   }
}

void Requests::shutDown( std::string const & interface, Request const & request ) {
   progress( interface, request.id, "running" );
   surroundings_.controller.shutdown(
      interface, request,
      [ this, interface, id = request.id ]( ShutdownStep step, ShutdownRecord const & record ) {
         if ( step == ShutdownStep::ended ) {
            end( interface, id, resultOf( record ) );
         }
      } );
}

void Requests::setUp( std::string const & interface, Request const & request ) {
   surroundings_.controller.enable( interface, request.requester(),
                                    [ this, interface, id = request.id ]( auto const & result ) {
                                       end( interface, id, resultOf( result ) );
                                    } );
}

// --- Results -------------------------------------------------------------------------------------

void Requests::progress( std::string const & interface, std::string const & id,
                         std::string const & result ) {
   auto const known = known_.find( interface );
   if ( known != known_.end() && known->second.id == id ) {
      known->second.result = result;
      tell( interface, known->second );
   }
}

void Requests::end( std::string const & interface, std::string const & id,
                    std::string const & result ) {
   auto const found = known_.find( interface );
   if ( found == known_.end() || found->second.id != id ) {
      return; // there is a newer one
   }
   auto & known = found->second;
   known.result = result;
   known.open = false;
   save( interface, known );
   if ( result.starts_with( "rejected" ) || result.starts_with( "failed" ) ) {
      log( LogLevel::warning, interface + ": request " + id + " of the database " + result );
   }
   tell( interface, known );
}

void Requests::save( std::string const & interface, Known const & known ) {
   surroundings_.file.save( interface, Settings::Fields{ { "id", known.id },
                                                         { "result", known.result },
                                                         { "open", known.open ? "yes" : "no" } } );
}

void Requests::tell( std::string const & interface, Known const & known ) const {
   if ( result_ && !known.result.empty() ) {
      result_( interface, known.id, known.result );
   }
}

} // namespace Valend
