#include "valend/speakers/SentGoodbyes.h"

#include "derivation/Derive.h"
#include "egress/Mutes.h"

#include <algorithm>
#include <optional>

namespace Valend {

namespace {

std::optional< Derivation::Heard > heardIn( std::string_view frame ) {
   auto said = Derivation::derive( frame );
   auto * const heard = said ? std::get_if< Derivation::Heard >( &*said ) : nullptr;
   return heard ? std::optional( std::move( *heard ) ) : std::nullopt;
}

} // namespace

std::vector< SentGoodbye > goodbyesAmong( std::vector< std::string_view > const & frames ) {
   std::vector< SentGoodbye > goodbyes;
   std::vector< Egress::Speaker > seen;
   for ( auto const & frame : frames ) {
      auto const id = Egress::speakerOf( frame, 0, 0 );
      if ( !id || std::find( seen.begin(), seen.end(), *id ) != seen.end() ) {
         continue; // not looked at further: there may be thousands of a speaker
      }
      if ( seen.size() == mostGoodbyes ) {
         break;
      }
      seen.push_back( *id );
      if ( auto heard = heardIn( frame ); heard && heard->leaves ) {
         goodbyes.push_back( { std::move( heard->protocol ), std::move( heard->speaker ) } );
      }
   }
   return goodbyes;
}

std::string speakerName( std::string_view goodbye ) {
   auto heard = heardIn( goodbye );
   return heard ? std::move( heard->speaker ) : "";
}

} // namespace Valend
