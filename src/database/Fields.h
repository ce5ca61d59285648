// The content of a hash.
#pragma once

#include "database/Reply.h"

#include <map>
#include <optional>
#include <string>

namespace Database {

using Fields = std::map< std::string, std::string >;

// The fields in a reply to HGETALL; empty if there is no such key. Nothing if the reply is not of that form.
inline std::optional< Fields > fieldsOf( Reply const & reply ) {
   if ( reply.type != Reply::Type::list || reply.items.size() % 2 ) {
      return std::nullopt;
   }
   Fields fields;
   for ( std::size_t i = 0; i < reply.items.size(); i += 2 ) {
      auto const & name = reply.items[ i ];
      auto const & value = reply.items[ i + 1 ];
      if ( name.type != Reply::Type::text || value.type != Reply::Type::text ) {
         return std::nullopt;
      }
      fields.emplace( name.text, value.text );
   }
   return fields;
}

} // namespace Database
