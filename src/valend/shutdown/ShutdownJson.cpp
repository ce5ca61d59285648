#include "valend/shutdown/ShutdownJson.h"

#include "valend/base/Described.h"

namespace Valend {

using Json = nlohmann::json;

namespace {

std::string textOrNull( Json const & json ) {
   return json.is_null() ? std::string() : json.get< std::string >();
}

AgentFrames agentFrom( Json const & json ) {
   AgentFrames frames;
   frames.agent = json.at( "agent" );
   frames.sent = json.at( "sent" );
   for ( auto const & refused : json.at( "refused" ) ) {
      frames.refused[ refused.at( "errno" ) ] = refused.at( "count" );
   }
   for ( auto const & goodbye :
         json.value( "goodbyes", Json::array() ) ) { // older journals do not have them
      frames.goodbyes.push_back( { goodbye.at( "protocol" ), goodbye.at( "speaker" ) } );
   }
   return frames;
}

std::chrono::system_clock::time_point timeFrom( Json const & json ) {
   return std::chrono::system_clock::time_point( std::chrono::milliseconds( json.get< S64 >() ) );
}

} // namespace

Json toJson( ShutdownRecord const & record ) {
   return JsonValue::of( record );
}

ShutdownRecord recordFromJson( Json const & json ) {
   ShutdownRecord record;
   record.interface = json.at( "interface" );
   record.place = { json.at( "namespace" ), json.at( "device" ) };
   record.request.by = json.at( "by" );
   record.request.login = textOrNull( json.at( "login" ) );
   record.request.reason = textOrNull( json.at( "reason" ) );
   record.request.id =
      textOrNull( json.value( "requestId", Json() ) ); // older journals do not have it
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
   for ( auto const & speaker :
         json.value( "muted", Json::array() ) ) { // older journals do not have them
      record.muted.push_back( { speaker.at( "protocol" ), speaker.at( "speaker" ),
                                speaker.at( "heldBack" ), speaker.at( "greeted" ) } );
   }
   record.notMuted = textOrNull( json.value( "notMuted", Json() ) );
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
