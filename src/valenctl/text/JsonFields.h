// Fields of valend's answers, read without trusting their types, and JSON as text.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// Each returns an empty value (false, 0) for a field that is absent, null or of another type.
inline std::string textField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_string() ? found->get< std::string >() : "";
}

inline std::uint64_t numberField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_number() ? found->get< std::uint64_t >() : 0;
}

inline bool flagField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_boolean() && found->get< bool >();
}

inline Json listField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_array() ? *found : Json::array();
}

// A field of any type; null when it is absent.
inline Json anyField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() ? *found : Json();
}

// The strings of a list; other elements are skipped.
inline std::vector< std::string > textsField( Json const & object, char const * key ) {
   std::vector< std::string > texts;
   for ( auto const & element : listField( object, key ) ) {
      if ( element.is_string() ) {
         texts.push_back( element.get< std::string >() );
      }
   }
   return texts;
}

// JSON on several lines, indented, and on one line. Invalid UTF-8 is replaced, not rejected. Neither
// ends with a newline.
inline std::string indented( Json const & json ) {
   return json.dump( 2, ' ', false, Json::error_handler_t::replace );
}

inline std::string oneLine( Json const & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

// A count, with the reason in parentheses when there is one: "2 (Network is down)".
inline std::string countWithReason( Json const & json, char const * count, char const * reason ) {
   auto const number = std::to_string( numberField( json, count ) );
   auto const why = textField( json, reason );
   return why.empty() ? number : number + " (" + why + ")";
}

} // namespace Valenctl
