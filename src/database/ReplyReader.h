// Makes replies of the bytes that a server sends, within a bound: a server is not trusted.
#pragma once

#include "database/Reply.h"

#include <memory>
#include <optional>
#include <string_view>

struct redisReader;

namespace Database {

class ReplyReader {
 public:
   // `bound`: how many bytes a reply may have, as it is sent and in memory.
   explicit ReplyReader( std::size_t bound );
   ~ReplyReader();

   void feed( std::string_view bytes );
   // The next reply that is whole; nothing if no reply is whole, or after an error.
   std::optional< Reply > next();
   // Why what came in cannot be read any further; empty while it can.
   std::string const & error() const noexcept { return error_; }
   // Whether that is because of the size of a reply.
   bool tooLarge() const noexcept { return tooLarge_; }

 private:
   struct Functions; // what the parser calls
   struct Free {
      void operator()( redisReader * reader ) const noexcept;
   };

   bool fits( U64 bytes ) noexcept;

   std::size_t const bound_;
   U64 used_ = 0; // by the reply that is being read
   std::string error_;
   bool tooLarge_ = false;
   std::unique_ptr< redisReader, Free > const reader_;
};

} // namespace Database
