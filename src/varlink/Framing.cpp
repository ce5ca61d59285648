#include "varlink/Framing.h"

namespace Varlink {

std::string encoded( Json const & message ) {
   return message.dump( -1, ' ', false, Json::error_handler_t::replace ) + '\0';
}

Encoded encodedAnswer( std::string_view parameters, Continues continues ) {
   std::string_view const begin =
      continues == Continues::yes ? R"({"continues":true,"parameters":)" : R"({"parameters":)";
   std::string text;
   text.reserve( begin.size() + parameters.size() + 2 );
   text.append( begin ).append( parameters ).append( "}" ).push_back( '\0' );
   return std::make_shared< std::string const >( std::move( text ) );
}

std::optional< std::string > Framing::next() {
   if ( tooLong() ) {
      return std::nullopt;
   }
   auto const end = buffer_.find( '\0', searched_ );
   searched_ = end == std::string::npos ? buffer_.size() : end;
   if ( end == std::string::npos || tooLong() ) {
      return std::nullopt;
   }
   auto message = buffer_.substr( 0, end );
   buffer_.erase( 0, end + 1 );
   searched_ = 0;
   return message;
}

} // namespace Varlink
