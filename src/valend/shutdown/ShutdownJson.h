// Shutdowns as JSON: for the control API, and for the journal, which reads them back.
#pragma once

#include "linux/Fd.h"
#include "valend/shutdown/ShutdownRecord.h"

#include <nlohmann/json.hpp>

namespace Valend {

// How often the kernel rejected a frame, and why.
struct RefusedFrames {
   int number = 0;
   U64 count = 0;
};

template < class Object > void describe( Object & object, RefusedFrames const & refused ) {
   object.add( "errno", refused.number );
   object.add( "reason", Valen::Linux::errorText( refused.number ) );
   object.add( "count", refused.count );
}

template < class Object > void describe( Object & object, SentGoodbye const & goodbye ) {
   object.add( "protocol", goodbye.protocol );
   object.add( "speaker", goodbye.speaker );
}

template < class Object > void describe( Object & object, AgentFrames const & frames ) {
   std::vector< RefusedFrames > refused;
   for ( auto const & [ number, count ] : frames.refused ) {
      refused.push_back( { number, count } );
   }
   object.add( "agent", frames.agent );
   object.add( "sent", frames.sent );
   object.add( "refused", refused );
   object.add( "goodbyes", frames.goodbyes );
}

template < class Object > void describe( Object & object, MutedSpeaker const & speaker ) {
   object.add( "protocol", speaker.protocol );
   object.add( "speaker", speaker.name );
   object.add( "heldBack", speaker.heldBack );
   object.add( "greeted", speaker.greeted );
}

// As org.valen.daemon.varlink describes it. An empty text becomes null.
template < class Object > void describe( Object & object, ShutdownRecord const & record ) {
   auto const orNull = []( std::string const & text ) {
      return text.empty() ? std::optional< std::string_view >() : text;
   };
   auto const inMs = []( std::chrono::system_clock::time_point time ) {
      return std::chrono::duration_cast< std::chrono::milliseconds >( time.time_since_epoch() )
         .count();
   };
   object.add( "interface", record.interface );
   object.add( "device", record.place.device );
   object.add( "namespace", record.place.netNs );
   object.add( "by", record.request.by );
   object.add( "login", orNull( record.request.login ) );
   object.add( "reason", orNull( record.request.reason ) );
   object.add( "requestId", orNull( record.request.id ) );
   object.add( "requestedDelayMs", record.request.delay
                                      ? std::optional( record.request.delay->count() )
                                      : std::nullopt );
   object.add( "whenMs", inMs( record.when ) );
   object.add( "withDelay", record.withDelay );
   object.add( "resumed", record.resumed );
   object.add( "sent", record.sent );
   object.add( "failed", record.failed );
   object.add( "failReason", orNull( record.failReason ) );
   object.add( "agents", record.agents );
   object.add( "sendingUs", record.sending.count() );
   object.add( "heldMs", record.held.count() );
   object.add( "totalMs", record.total.count() );
   object.add( "muted", record.muted );
   object.add( "notMuted", orNull( record.notMuted ) );
   object.add( "unflushedBytes", record.unflushedBytes );
   object.add( "ending", record.endingText() );
   object.add( "why", orNull( record.why ) );
   object.add( "count", record.count );
   object.add( "untilMs", record.count > 1 ? std::optional( inMs( record.until ) ) : std::nullopt );
}

nlohmann::json toJson( ShutdownRecord const & record );

// The inverse of toJson; `when` and `until` are exact to the millisecond. Throws nlohmann::json::exception when a
// field is missing or has the wrong type.
ShutdownRecord recordFromJson( nlohmann::json const & json );

} // namespace Valend
