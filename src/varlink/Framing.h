// Messages on a byte stream: JSON objects, each ended by a zero byte. For both ends.
#pragma once

#include "platform/quill/Int.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace Varlink {

using Json = nlohmann::json;

// The bytes of a message, its end included. Text that is not UTF-8 is replaced.
std::string encoded( Json const & message );

// A message's bytes, encoded once and shared by all connections that still have to send them.
using Encoded = std::shared_ptr< std::string const >;

// An answer of `parameters`, the text of a JSON object.
enum class Continues : U8 { no, yes };
Encoded encodedAnswer( std::string_view parameters, Continues continues );

// Splits the received bytes into messages. Bounded.
class Framing {
 public:
   // `maxBytes`: the longest message, its end not counted.
   explicit Framing( std::size_t maxBytes ) : maxBytes_( maxBytes ) {}

   // Takes bytes that came in.
   void feed( std::string_view bytes ) { buffer_ += bytes; }
   // The next whole message; nothing while it is incomplete, or when it is too long.
   std::optional< std::string > next();
   // Whether the message at the head is longer than it may be. Nothing can be read after it.
   bool tooLong() const noexcept { return searched_ > maxBytes_; }
   // Bytes that wait for their message's end, or for next().
   std::size_t waiting() const noexcept { return buffer_.size(); }

 private:
   std::size_t const maxBytes_;
   std::string buffer_;
   std::size_t searched_ = 0; // bytes at the head that hold no end
};

} // namespace Varlink
