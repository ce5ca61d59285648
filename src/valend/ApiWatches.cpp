#include "valend/ApiWatches.h"

#include "valend/Refusal.h"

namespace Valend {

namespace {

using Looked = StoreWatch::Looked;

// Answers that a client has not taken hold further ones back.
bool isSlow( ApiCall const & call ) {
   return call.waiting() > 0;
}

Looked lookLater() {
   return { false, true, ApiWatches::slowPeriod };
}

bool holds( Json const & interface, ApiWatches::Until until ) {
   switch ( until ) {
   case ApiWatches::Until::ready:
      return interface[ "ready" ];
   case ApiWatches::Until::up:
      return interface[ "link" ] == "up" && !interface[ "shuttingDown" ];
   case ApiWatches::Until::down:
      return interface[ "link" ] != "up";
   case ApiWatches::Until::idle:
      return !interface[ "shuttingDown" ];
   }
   return false;
}

char const * textOf( ApiWatches::Until until ) {
   switch ( until ) {
   case ApiWatches::Until::ready:
      return "ready";
   case ApiWatches::Until::up:
      return "up";
   case ApiWatches::Until::down:
      return "down";
   case ApiWatches::Until::idle:
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

ApiWatches::ApiWatches( Store & store, StatusReport const & report, Feeder const & feeder,
                        Quill::Ptr< Gantry::TaskScheduler > scheduler, StoreWatch::Post post )
    : store_( store ), report_( report ), feeder_( feeder ), scheduler_( std::move( scheduler ) ),
      post_( std::move( post ) ) {}

void ApiWatches::watch( std::shared_ptr< ApiCall > call, std::string const & path ) {
   if ( !showPath( *store_.entityManager, path ) ) {
      throw Refusal( "NoSuchPath", "nothing stands at \"" + path + "\"" );
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
         call->error( std::string( "org.valen.Agent." ) + e.name(), { { "message", e.what() } } );
      }
      return { .over = !call->open() };
   } );
}

// What the status is made of, as far as the store tells it: the library's entries and the devices.
void ApiWatches::visitStatus( StoreVisits & visits ) const {
   auto const see = [ & ]( std::string const & path ) {
      try {
         showPath( *store_.entityManager, path, &visits );
      } catch ( Refusal const & ) { // the status is looked at now and then, too
      }
   };
   see( "status" );
   see( "kni/ns/" + feeder_.config().netNsOf( defaultVrf ) + "/status" );
   for ( auto const & [ vrf, netNs ] : feeder_.config().vrfs ) {
      see( "kni/ns/" + netNs + "/status" );
   }
}

Json ApiWatches::interfaces( std::optional< std::string > const & wanted ) const {
   auto byName = Json::object();
   for ( auto const & [ name, config ] : feeder_.config().interfaces ) {
      if ( !wanted || name == *wanted ) {
         byName[ name ] = report_.interface( config );
      }
   }
   return byName;
}

void ApiWatches::watchStatus( std::shared_ptr< ApiCall > call,
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

void ApiWatches::wait( std::shared_ptr< ApiCall > call, std::string const & interface, Until until,
                       std::optional< std::chrono::milliseconds > patience ) {
   auto const end = patience ? std::optional( scheduler_->now() + *patience ) : std::nullopt;
   add( call, [ this, call, interface, until, end ]( StoreVisits & visits ) -> Looked {
      auto const config = feeder_.config().interfaces.find( interface );
      if ( config == feeder_.config().interfaces.end() ) {
         call->error(
            "org.valen.Agent.NoSuchInterface",
            { { "message", "interface \"" + interface + "\" is not configured any more" } } );
         return { .over = true };
      }
      visitStatus( visits );
      auto now = report_.interface( config->second );
      if ( holds( now, until ) ) {
         call->reply( { { "interface", std::move( now ) } } );
      } else if ( end && scheduler_->now() >= *end ) {
         call->error( "org.valen.Agent.TimedOut",
                      { { "message", "interface \"" + interface + "\" is not " + textOf( until ) +
                                        " yet" } } );
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

void ApiWatches::changed() {
   for ( auto const & one : watches_ ) {
      one.watch->changed();
   }
}

void ApiWatches::clientGone( U64 client ) {
   std::erase_if( watches_, [ & ]( auto const & one ) { return one.client == client; } );
}

void ApiWatches::add( std::shared_ptr< ApiCall > const & call, StoreWatch::Look look ) {
   std::erase_if( watches_, []( auto const & one ) { return one.watch->over(); } );
   watches_.push_back(
      { call->client(), std::make_unique< StoreWatch >( scheduler_, post_, std::move( look ) ) } );
}

} // namespace Valend
