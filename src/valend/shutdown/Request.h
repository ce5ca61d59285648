// What a client asks for: who, why, and how.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace Valend {

struct Request {
   static constexpr std::size_t maxReasonBytes = 255;

   std::string by = {}; // the client's user: "root", "uid 1000"
   std::string login =
      {}; // who logged in, if that is another user: "alice" behind sudo; else empty
   std::string reason = {}; // as the client gave it; empty without one
   std::optional< std::chrono::milliseconds > delay = {}; // instead of the configured one

   std::string id = {}; // of a request of the database; else empty

   // "alice", "root (login alice)"
   std::string requester() const { return login.empty() ? by : by + " (login " + login + ")"; }

   bool operator==( Request const & ) const = default;
};

} // namespace Valend
