#include "valend/api/StatusMethods.h"

#include "platform/quill/Allocation.h"
#include "settings/Version.h"

#include <algorithm>

namespace Valend {

namespace {

Json conditionsJson( Conditions const & conditions ) {
   using std::chrono::milliseconds;
   auto list = Json::array();
   for ( auto const & [ name, text, since ] : conditions.raised() ) {
      auto const sinceMs = std::chrono::duration_cast< milliseconds >( since.time_since_epoch() );
      list.push_back( { { "name", name }, { "text", text }, { "since", sinceMs.count() } } );
   }
   return list;
}

} // namespace

std::vector< Method > StatusMethods::methods() {
   using Self = StatusMethods;
   return {
      method( "Status", Right::read, *this, &Self::status ),
      method( "Explain", Right::read, *this, &Self::explain ),
      method( "History", Right::read, *this, &Self::history ),
      method( "Metrics", Right::read, *this, &Self::metrics ),
      method( "Memory", Right::read, *this, &Self::memory ),
   };
}

void StatusMethods::status( Call const & call, Text const & interface ) {
   auto const & delayMs = parts_.feeder.config().shutdownDelayMs;
   auto interfaces =
      interface ? Json::array( { report_.interface( parts_.interface( *interface ) ) } )
                : report_.interfaces();
   call->reply( { { "version", Settings::version },
                  { "shutdownDelayMs", delayMs ? Json( *delayMs ) : Json() },
                  { "active", parts_.store.statusDir->agentActive() },
                  { "faults", parts_.faults.count() },
                  { "lastFaults", parts_.faults.texts() },
                  { "conditions", conditionsJson( parts_.conditions ) },
                  { "interfaces", std::move( interfaces ) },
                  { "vrfs", report_.vrfs() } } );
}

void StatusMethods::explain( Call const & call, std::string const & interface ) {
   auto const & config = parts_.interface( interface );
   auto const now = report_.interface( config );
   call->reply( { { "ready", now[ "ready" ] },
                  { "link", now[ "link" ] },
                  { "retrying", now[ "retrying" ] },
                  { "requirements", report_.requirements( config ) } } );
}

// In the order in which they were requested or, of repeats, the last happened. The controller has them in
// the order of their ends.
void StatusMethods::history( Call const & call,
                             std::optional< std::vector< std::string > > const & interfaces,
                             std::optional< U64 > last, std::optional< U64 > sinceMs ) {
   using std::chrono::milliseconds;
   std::vector< ShutdownRecord const * > chosen;
   for ( auto const & record : parts_.controller.history() ) {
      bool const named =
         !interfaces || std::count( interfaces->begin(), interfaces->end(), record.interface );
      auto const when = std::chrono::floor< milliseconds >( record.last().time_since_epoch() );
      if ( named && ( !sinceMs || when.count() >= static_cast< S64 >( *sinceMs ) ) ) {
         chosen.push_back( &record );
      }
   }
   std::stable_sort( chosen.begin(), chosen.end(),
                     []( auto const * a, auto const * b ) { return a->last() < b->last(); } );
   auto const count = std::min< U64 >( last.value_or( chosen.size() ), chosen.size() );
   auto list = Json::array();
   for ( auto record = chosen.end() - static_cast< S64 >( count ); record != chosen.end();
         ++record ) {
      list.push_back( StatusReport::record( **record ) );
   }
   call->reply( { { "shutdowns", std::move( list ) } } );
}

void StatusMethods::metrics( Call const & call, std::optional< MetricsFormat > const & format ) {
   call->reply(
      { { "text", parts_.metrics.text( format.value_or( MetricsFormat::prometheus ) ) } } );
}

void StatusMethods::memory( Call const & call ) {
   auto types = Json::array();
   for ( auto const * const type : Quill::allocationTypes() ) {
      types.push_back(
         { { "type", type->name }, { "live", type->live }, { "bytes", type->liveBytes } } );
   }
   call->reply( { { "types", std::move( types ) } } );
}

} // namespace Valend
