#include "valend/api/WatchMethods.h"

#include "valend/base/Errors.h"

namespace Valend {

namespace {

using Looked = StoreWatch::Looked;

// Answers that a client has not taken hold further ones back.
bool isSlow( Varlink::Call const & call ) {
   return call.waiting() > 0;
}

Looked lookLater() {
   return { false, true, WatchMethods::slowPeriod };
}

void answer( Varlink::Call & call, Refusal const & refusal ) {
   call.error( "org.valen.daemon." + refusal.name(), refusal.parameters() );
}

bool holds( Json const & interface, WatchMethods::Until until ) {
   switch ( until ) {
   case WatchMethods::Until::ready:
      return interface[ "ready" ];
   case WatchMethods::Until::up:
      return interface[ "link" ] == "up" && !interface[ "shuttingDown" ];
   case WatchMethods::Until::down:
      return interface[ "link" ] != "up";
   case WatchMethods::Until::idle:
      return !interface[ "shuttingDown" ];
   }
   return false;
}

char const * textOf( WatchMethods::Until until ) {
   switch ( until ) {
   case WatchMethods::Until::ready:
      return "ready";
   case WatchMethods::Until::up:
      return "up";
   case WatchMethods::Until::down:
      return "down";
   case WatchMethods::Until::idle:
      break;
   }
   return "idle";
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

WatchMethods::WatchMethods( Store & store, StatusReport const & report, Feeder const & feeder,
                            Quill::Ptr< Gantry::TaskScheduler > scheduler,
                            Gantry::WorkQueue & work )
    : store_( store ), report_( report ), feeder_( feeder ), scheduler_( std::move( scheduler ) ),
      work_( work ) {}

void WatchMethods::watch( std::shared_ptr< Varlink::Call > call, std::string const & path ) {
   if ( !showPath( *store_.entityManager, path ) ) {
      throw Errors::noSuchPath( path );
   }
   auto const last = std::make_shared< std::optional< Json > >();
   add( call, [ this, call, path, last ]( StoreVisits & visits ) -> Looked {
      if ( !call->open() ) {
         return { .over = true };
      }
      if ( isSlow( *call ) ) {
         return lookLater();
      }
      try {
         auto now = showPath( *store_.entityManager, path, &visits ).value_or( Json() );
         if ( *last != now ) {
            call->reply( { { "value", now } }, true );
            *last = std::move( now );
         }
      } catch ( Refusal const & e ) { // it has grown
         answer( *call, e );
      }
      return { .over = !call->open() };
   } );
}

// What the status is made of, as far as the store tells it: the library's entries and the devices.
void WatchMethods::visitStatus( StoreVisits & visits ) const {
   auto const see = [ & ]( std::string const & path ) {
      try {
         showPath( *store_.entityManager, path, &visits );
      } catch ( Refusal const & ) { // the status is looked at now and then, too
      }
   };
   see( "status" );
   see( "kni/ns/" + feeder_.config().netNsOf( Settings::defaultVrf ) + "/status" );
   for ( auto const & [ vrf, netNs ] : feeder_.config().vrfs ) {
      see( "kni/ns/" + netNs + "/status" );
   }
}

Json WatchMethods::interfaces( std::optional< std::string > const & wanted ) const {
   auto byName = Json::object();
   for ( auto const & [ name, config ] : feeder_.config().interfaces ) {
      if ( !wanted || name == *wanted ) {
         byName[ name ] = report_.interface( config );
      }
   }
   return byName;
}

void WatchMethods::watchStatus( std::shared_ptr< Varlink::Call > call,
                                std::optional< std::string > interface ) {
   auto const last = std::make_shared< std::optional< Json > >();
   add( call, [ this, call, interface, last ]( StoreVisits & visits ) -> Looked {
      if ( !call->open() ) {
         return { .over = true };
      }
      if ( isSlow( *call ) ) {
         return lookLater();
      }
      visitStatus( visits );
      auto now = interfaces( interface );
      if ( *last != now ) {
         call->reply( difference( last->value_or( Json::object() ), now ), true );
         *last = std::move( now );
      }
      return { .next = statusPeriod };
   } );
}

void WatchMethods::wait( std::shared_ptr< Varlink::Call > call, std::string const & interface,
                         Until until, std::optional< std::chrono::milliseconds > patience ) {
   auto const end = patience ? std::optional( scheduler_->now() + *patience ) : std::nullopt;
   add( call, [ this, call, interface, until, end ]( StoreVisits & visits ) -> Looked {
      auto const config = feeder_.config().interfaces.find( interface );
      if ( config == feeder_.config().interfaces.end() ) {
         answer( *call, Errors::noSuchInterface( interface ) );
         return { .over = true };
      }
      visitStatus( visits );
      auto now = report_.interface( config->second );
      if ( holds( now, until ) ) {
         call->reply( { { "interface", std::move( now ) } } );
      } else if ( end && scheduler_->now() >= *end ) {
         answer( *call, Errors::timedOut( interface, textOf( until ) ) );
      }
      auto next = statusPeriod;
      if ( end ) {
         auto const left =
            std::chrono::ceil< std::chrono::milliseconds >( *end - scheduler_->now() );
         next = std::clamp( left, std::chrono::milliseconds( 1 ), next );
      }
      return { .over = !call->open(), .next = next };
   } );
}

void WatchMethods::changed() {
   for ( auto const & one : watches_ ) {
      one.watch->changed();
   }
}

void WatchMethods::clientGone( U64 client ) {
   std::erase_if( watches_, [ & ]( auto const & one ) { return one.client == client; } );
}

void WatchMethods::add( std::shared_ptr< Varlink::Call > const & call, StoreWatch::Look look ) {
   std::erase_if( watches_, []( auto const & one ) { return one.watch->over(); } );
   watches_.push_back(
      { call->client(), std::make_unique< StoreWatch >( scheduler_, work_, std::move( look ) ) } );
}

} // namespace Valend
