// What a server answered.
#pragma once

#include "platform/quill/Int.h"

#include <string>
#include <string_view>
#include <vector>

namespace Database {

struct Reply {
   enum class Type : U8 {
      nothing, // no such key, or a transaction that was not run
      text,    // bytes
      status,  // "OK"
      number,
      list,
      error, // `text` is the server's: "NOAUTH Authentication required."
      lost,  // the connection broke; whether the server has run the command is unknown
   };

   Type type = Type::nothing;
   std::string text = {}; // of a lost one: why, if its own size was the reason; otherwise empty
   S64 number = 0;
   std::vector< Reply > items = {};

   bool ok() const noexcept { return type != Type::error && type != Type::lost; }
   bool failed() const noexcept { return type == Type::error; }
   bool lost() const noexcept { return type == Type::lost; }
   // Whether the error has this code, its first word: "OOM".
   bool failedWith( std::string_view code ) const noexcept {
      return failed() && text.substr( 0, text.find( ' ' ) ) == code;
   }
};

} // namespace Database
