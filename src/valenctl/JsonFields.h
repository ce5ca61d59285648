// Fields of the agent's answers, taken without trust in what they hold.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace Valenctl {

using Json = nlohmann::json;

// Each gives an empty value for a field that is absent, null or of another type.
inline std::string textField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_string() ? found->get< std::string >() : "";
}

inline std::uint64_t numberField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_number() ? found->get< std::uint64_t >() : 0;
}

inline Json listField( Json const & object, char const * key ) {
   auto const found = object.find( key );
   return found != object.end() && found->is_array() ? *found : Json::array();
}

} // namespace Valenctl
