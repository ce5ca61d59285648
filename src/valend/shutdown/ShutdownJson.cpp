#include "valend/shutdown/ShutdownJson.h"

#include "linux/Fd.h"

namespace Valend {

using Json = nlohmann::json;

namespace {

Json orNull( std::string const & text ) {
   return text.empty() ? Json() : Json( text );
}

std::string textOrNull( Json const & json ) {
   return json.is_null() ? std::string() : json.get< std::string >();
}

Json agentJson( AgentFrames const & frames ) {
   auto refused = Json::array();
   for ( auto const & [ number, count ] : frames.refused ) {
      refused.push_back( { { "errno", number },
                           { "reason", Valen::Linux::errorText( number ) },
                           { "count", count } } );
   }
   return {
      { "agent", frames.agent }, { "sent", frames.sent }, { "refused", std::move( refused ) } };
}

AgentFrames agentFrom( Json const & json ) {
   AgentFrames frames;
   frames.agent = json.at( "agent" );
   frames.sent = json.at( "sent" );
   for ( auto const & refused : json.at( "refused" ) ) {
      frames.refused[ refused.at( "errno" ) ] = refused.at( "count" );
   }
   return frames;
}

S64 inMs( std::chrono::system_clock::time_point time ) {
   return std::chrono::duration_cast< std::chrono::milliseconds >( time.time_since_epoch() )
      .count();
}

std::chrono::system_clock::time_point timeFrom( Json const & json ) {
   return std::chrono::system_clock::time_point( std::chrono::milliseconds( json.get< S64 >() ) );
}

} // namespace

Json toJson( ShutdownRecord const & record ) {
   auto agents = Json::array();
   for ( auto const & frames : record.agents ) {
      agents.push_back( agentJson( frames ) );
   }
   return {
      { "interface", record.interface },
      { "device", record.place.device },
      { "namespace", record.place.netNs },
      { "by", record.request.by },
      { "login", orNull( record.request.login ) },
      { "reason", orNull( record.request.reason ) },
      { "requestedDelayMs", record.request.delay ? Json( record.request.delay->count() ) : Json() },
      { "whenMs", inMs( record.when ) },
      { "withDelay", record.withDelay },
      { "resumed", record.resumed },
      { "sent", record.sent },
      { "failed", record.failed },
      { "failReason", orNull( record.failReason ) },
      { "agents", std::move( agents ) },
      { "sendingUs", record.sending.count() },
      { "heldMs", record.held.count() },
      { "totalMs", record.total.count() },
      { "unflushedBytes", record.unflushedBytes },
      { "ending", record.endingText() },
      { "why", orNull( record.why ) },
      { "count", record.count },
      { "untilMs", record.count > 1 ? Json( inMs( record.until ) ) : Json() },
   };
}

ShutdownRecord recordFromJson( Json const & json ) {
   ShutdownRecord record;
   record.interface = json.at( "interface" );
   record.place = { json.at( "namespace" ), json.at( "device" ) };
   record.request.by = json.at( "by" );
   record.request.login = textOrNull( json.at( "login" ) );
   record.request.reason = textOrNull( json.at( "reason" ) );
   if ( auto const & delay = json.at( "requestedDelayMs" ); !delay.is_null() ) {
      record.request.delay = std::chrono::milliseconds( delay.get< S64 >() );
   }
   record.when = timeFrom( json.at( "whenMs" ) );
   record.withDelay = json.at( "withDelay" );
   record.resumed = json.at( "resumed" );
   record.sent = json.at( "sent" );
   record.failed = json.at( "failed" );
   record.failReason = textOrNull( json.at( "failReason" ) );
   for ( auto const & agent : json.at( "agents" ) ) {
      record.agents.push_back( agentFrom( agent ) );
   }
   record.sending = std::chrono::microseconds( json.at( "sendingUs" ).get< S64 >() );
   record.held = std::chrono::milliseconds( json.at( "heldMs" ).get< S64 >() );
   record.total = std::chrono::milliseconds( json.at( "totalMs" ).get< S64 >() );
   record.unflushedBytes = json.at( "unflushedBytes" );
   record.ending = endingOf( json.at( "ending" ) );
   record.why = textOrNull( json.at( "why" ) );
   record.count = json.value( "count", U64{ 1 } ); // older journals do not have it
   if ( record.count > 1 ) {
      record.until = timeFrom( json.at( "untilMs" ) );
   }
   return record;
}

} // namespace Valend
