#include "varlink/CallMessage.h"

namespace Varlink {

namespace {

constexpr int deepest = 16; // objects and arrays in one another

bool isTooDeep( std::string_view text ) {
   int depth = 0;
   bool inString = false;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      auto const c = text[ i ];
      if ( inString ) {
         i += c == '\\';
         inString = c != '"';
      } else if ( c == '"' ) {
         inString = true;
      } else if ( ( c == '[' || c == '{' ) && ++depth > deepest ) {
         return true;
      } else if ( c == ']' || c == '}' ) {
         --depth;
      }
   }
   return false;
}

bool isSet( Json const & message, char const * flag ) {
   auto const found = message.find( flag );
   return found != message.end() && found->is_boolean() && found->get< bool >();
}

} // namespace

std::optional< CallMessage > CallMessage::parse( std::string const & text ) {
   auto const message = isTooDeep( text ) ? Json() : Json::parse( text, nullptr, false );
   if ( !message.is_object() || !message.contains( "method" ) ||
        !message[ "method" ].is_string() ) {
      return std::nullopt;
   }
   auto parameters = message.value( "parameters", Json::object() );
   if ( parameters.is_null() ) {
      parameters = Json::object();
   }
   return CallMessage{ message[ "method" ], std::move( parameters ),
                       isSet( message, "oneway" ) ? Wanted::none
                       : isSet( message, "more" ) ? Wanted::many
                                                  : Wanted::one };
}

} // namespace Varlink
