// What an operator wants of a link, as a hash of the database "want:INTERFACE" says it:
//   link       "up" or "down"
//   id         of the request: 1 to 64 bytes; another id is another request
//   by         who wants it, for the record; may be left out
//   reason     why, for the record; may be left out
//   delay-ms   of the shutdown, instead of the configured one; may be left out
#pragma once

#include "settings/Entity.h"
#include "valend/shutdown/Request.h"

#include <string>

namespace Valend {

struct Want {
   static constexpr std::size_t maxIdBytes = 64;
   static constexpr std::size_t maxByBytes = 255;

   std::string id;
   bool up = false;
   Request request; // by "database"; with `by` as its login

   std::string why; // it cannot be done; else empty
};

// The id may be empty then, and is printable otherwise.
Want wantOf( Settings::Fields const & fields, U64 maxDelayMs );

} // namespace Valend
