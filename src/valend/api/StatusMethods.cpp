#include "valend/api/StatusMethods.h"

#include "platform/quill/Allocation.h"

#include <algorithm>

namespace Valend {

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
   if ( !interface ) {
      return all_.to( call );
   }
   auto status = daemon_.json();
   status[ "interfaces" ] = Json::array( { report_.interface( parts_.interface( *interface ) ) } );
   call->reply( std::move( status ) );
}

// One interface after the other, by name, while they may come and go. The rest is as it is at the end.
SlowAnswer::Part StatusMethods::allInterfaces() const {
   auto next = [ this, last = std::string() ]() mutable -> std::optional< Json > {
      auto const & interfaces = parts_.feeder.config().interfaces;
      auto const found = interfaces.upper_bound( last ); // no name is empty
      if ( found == interfaces.end() ) {
         return std::nullopt;
      }
      last = found->first;
      return report_.interface( found->second );
   };
   return SlowAnswer::lists( { { "interfaces", std::move( next ) } },
                             [ this ] { return daemon_.json(); } );
}

void StatusMethods::explain( Call const & call, std::string const & interface ) {
   auto const & config = parts_.interface( interface );
   auto const now = report_.interface( config );
   auto const notMuted = parts_.speakers.whyNotMuted( config );
   bool const present = !now[ "ifIndex" ].is_null();
   call->reply( { { "ready", now[ "ready" ] },
                  { "link", now[ "link" ] },
                  { "retrying", now[ "retrying" ] },
                  { "requirements", report_.requirements( config ) },
                  { "notMuted", present && !notMuted.empty() ? Json( notMuted ) : Json() },
                  { "speakers", parts_.speakers.heard( config ) } } );
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
