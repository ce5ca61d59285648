#include "valend/api/WatchMethods.h"

namespace Valend {

namespace {

using Until = WatchMethods::Until;

// Answers that a client has not taken hold further ones back.
bool isSlow( Varlink::Call const & call ) {
   return call.waiting() > 0;
}

StoreWatch::Looked lookLater() {
   return { .skipped = true, .next = WatchMethods::slowPeriod };
}

bool isMet( Json const & interface, Until until ) {
   switch ( until ) {
   case Until::ready:
      return interface[ "ready" ];
   case Until::up:
      return interface[ "link" ] == "up" && !interface[ "shuttingDown" ];
   case Until::down:
      return interface[ "link" ] != "up";
   case Until::idle:
      return !interface[ "shuttingDown" ];
   }
   return false;
}

// What of `now` is not the same in `before`, and the names that are not there any more.
Json difference( Json const & before, Json const & now ) {
   auto changed = Json::array();
   auto gone = Json::array();
   for ( auto const & [ name, interface ] : now.items() ) {
      auto const old = before.find( name );
      if ( old == before.end() || *old != interface ) {
         changed.push_back( interface );
      }
   }
   for ( auto const & [ name, interface ] : before.items() ) {
      if ( !now.contains( name ) ) {
         gone.push_back( name );
      }
   }
   return { { "interfaces", std::move( changed ) }, { "gone", std::move( gone ) } };
}

} // namespace

std::vector< Method > WatchMethods::methods() {
   using Self = WatchMethods;
   return {
      method( "Watch", Right::read, *this, &Self::watch, Replies::stream ),
      method( "WatchStatus", Right::read, *this, &Self::watchStatus, Replies::stream ),
      method( "Wait", Right::read, *this, &Self::wait ),
   };
}

// --- The store -----------------------------------------------------------------------------------

void WatchMethods::watch( Call const & call, std::string const & path ) {
   auto const & entities = *parts_.store.entityManager;
   if ( !showPath( entities, path ) ) {
      throw Errors::noSuchPath( path );
   }
   add( call,
        [ &entities, call, path,
          last = std::optional< Json >() ]( StoreVisits & visits ) mutable -> Looked {
           if ( call->open() && isSlow( *call ) ) {
              return lookLater();
           }
           try {
              auto now = showPath( entities, path, &visits ).value_or( Json() );
              if ( last != now ) {
                 call->replyContinues( { { "value", now } } );
                 last = std::move( now );
              }
           } catch ( Refusal const & e ) { // it has grown
              answer( *call, e );
           }
           return { .over = !call->open() };
        } );
}

// --- The status ----------------------------------------------------------------------------------

// What the status is made of, as far as the store has it: the library's entries and the devices.
void WatchMethods::visitStatus( StoreVisits & visits ) const {
   auto const visit = [ & ]( std::string const & path ) {
      try {
         showPath( *parts_.store.entityManager, path, &visits );
      } catch ( Refusal const & ) { // the status is looked at now and then, too
      }
   };
   auto const & config = parts_.feeder.config();
   visit( "status" );
   visit( "kni/ns/" + config.netNsOf( Settings::defaultVrf ) + "/status" );
   for ( auto const & [ vrf, netNs ] : config.vrfs ) {
      visit( "kni/ns/" + netNs + "/status" );
   }
}

Json WatchMethods::interfaces( std::optional< std::string > const & wanted ) const {
   auto byName = Json::object();
   for ( auto const & [ name, config ] : parts_.feeder.config().interfaces ) {
      if ( !wanted || name == *wanted ) {
         byName[ name ] = report_.interface( config );
      }
   }
   return byName;
}

void WatchMethods::watchStatus( Call const & call,
                                std::optional< std::string > const & interface ) {
   if ( interface ) {
      parts_.interface( *interface );
   }
   add( call,
        [ this, call, interface,
          last = std::optional< Json >() ]( StoreVisits & visits ) mutable -> Looked {
           if ( !call->open() ) {
              return { .over = true };
           }
           if ( isSlow( *call ) ) {
              return lookLater();
           }
           visitStatus( visits );
           auto now = interfaces( interface );
           if ( last != now ) {
              call->replyContinues( difference( last.value_or( Json::object() ), now ) );
              last = std::move( now );
           }
           return { .next = statusPeriod };
        } );
}

// --- Waiting -------------------------------------------------------------------------------------

// Whether the call is answered now: the interface is so, or is not configured any more.
bool WatchMethods::answerIfMet( Call const & call, std::string const & interface, Until until ) {
   try {
      auto now = report_.interface( parts_.interface( interface ) );
      if ( !isMet( now, until ) ) {
         return false;
      }
      call->reply( { { "interface", std::move( now ) } } );
   } catch ( Refusal const & e ) {
      answer( *call, e );
   }
   return true;
}

void WatchMethods::wait( Call const & call, std::string const & interface, Until until,
                         std::optional< U64 > timeoutMs ) {
   using std::chrono::milliseconds;
   parts_.interface( interface );
   auto const now = [ this ] { return parts_.scheduler->now(); };
   std::optional< Gantry::Time > end;
   if ( timeoutMs ) {
      auto const most = static_cast< U64 >( maxTimeout.count() );
      end = now() + milliseconds( std::min( *timeoutMs, most ) );
   }
   add( call, [ this, call, interface, until, now, end ]( StoreVisits & visits ) -> Looked {
      visitStatus( visits );
      if ( !call->open() || answerIfMet( call, interface, until ) ) {
         return { .over = true };
      }
      if ( !end ) {
         return { .next = statusPeriod };
      }
      if ( now() >= *end ) {
         answer( *call, Errors::timedOut( interface, textOf( until ) ) );
         return { .over = true };
      }
      auto const left = std::chrono::ceil< milliseconds >( *end - now() );
      return { .next = std::clamp( left, milliseconds( 1 ), statusPeriod ) };
   } );
}

// --- The watches ---------------------------------------------------------------------------------

void WatchMethods::changed() {
   for ( auto const & one : watches_ ) {
      one.watch->changed();
   }
}

void WatchMethods::clientGone( U64 client ) {
   std::erase_if( watches_, [ & ]( auto const & one ) { return one.client == client; } );
}

void WatchMethods::add( Call const & call, StoreWatch::Look look ) {
   std::erase_if( watches_, []( auto const & one ) { return one.watch->over(); } );
   watches_.push_back( { call->client(), std::make_unique< StoreWatch >(
                                            parts_.scheduler, parts_.work, std::move( look ) ) } );
}

} // namespace Valend
