#include "valend/report/SpeakersReport.h"

#include "valend/report/OrNull.h"

#include <algorithm>
#include <map>

namespace Valend {

namespace {

using Json = nlohmann::json;

S64 inMs( std::chrono::nanoseconds duration ) {
   return std::max< S64 >( 0, std::chrono::floor< std::chrono::milliseconds >( duration ).count() );
}

} // namespace

// `heardMs` and `freshMs`, which both types have.
Json SpeakersReport::age( SpeakerTable::Part const & part ) const {
   auto const now = sources_.scheduler->now();
   return { { "heardMs", inMs( now - part.at ) },
            { "freshMs", inMs( SpeakerTable::freshUntil( part ) - now ) } };
}

Json SpeakersReport::learned( Publications::Message const & message ) const {
   auto list = Json::array();
   auto const interface = sources_.config.interfaces.find( message.interface );
   if ( message.lifetime != Publications::Lifetime::learned ||
        interface == sources_.config.interfaces.end() ) {
      return list;
   }
   std::map< std::string_view, SpeakerTable::Part const * > byGoodbye;
   for ( auto const & speaker :
         sources_.table.known( placeOf( sources_.config, interface->second ) ) ) {
      for ( auto const & [ name, part ] : speaker.parts ) {
         byGoodbye.emplace( part.heard.goodbye, &part );
      }
   }
   for ( std::size_t i = 0; i < message.frames.size(); ++i ) {
      auto const found = byGoodbye.find( message.frames[ i ] );
      if ( found == byGoodbye.end() ) {
         continue;
      }
      auto one = age( *found->second );
      one[ "frame" ] = i + 1;
      one[ "speaker" ] = found->second->heard.speaker;
      one[ "change" ] = found->second->heard.change;
      list.push_back( std::move( one ) );
   }
   return list;
}

Json SpeakersReport::heard( Settings::InterfaceConfig const & interface ) const {
   auto list = Json::array();
   for ( auto const & speaker : sources_.table.known( placeOf( sources_.config, interface ) ) ) {
      auto const & latest = speaker.latest();
      auto one = age( latest );
      one[ "protocol" ] = Egress::protocolOf( speaker.id );
      one[ "speaker" ] = latest.heard.speaker;
      one[ "says" ] = latest.heard.says;
      one[ "frames" ] = speaker.parts.size();
      one[ "change" ] = orNull( latest.heard.change );
      one[ "notLearned" ] = orNull( whyNotLearned( interface.name, speaker ) );
      list.push_back( std::move( one ) );
   }
   return list;
}

// What an operator can change comes last.
std::string SpeakersReport::whyNotLearned( std::string const & interface,
                                           SpeakerTable::Speaker const & speaker ) const {
   auto const & heard = speaker.latest().heard;
   return heard.goodbye.empty() ? heard.whyNot
                                : sources_.learned.whyUnused(
                                     interface, std::string( Egress::protocolOf( speaker.id ) ) );
}

std::string SpeakersReport::whyNotMuted( Settings::InterfaceConfig const & interface ) const {
   return sources_.whyNotMuted( placeOf( sources_.config, interface ) );
}

} // namespace Valend
