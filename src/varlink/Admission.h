// Who gets a connection when there are many, and who has to leave for it.
//
// Connections are reserved, so that those who may do little cannot keep out those who may do more, nor
// clients that stay keep out those that come and go:
//
//   strangers   a few together, and fewer of each user
//   users       all but those reserved for admins; a bound for each user
//   admins      all but those reserved for root; a bound for each user
//   root        all
//
// Connections that last, such as those of watches, may be as many less as are reserved for admins.
//
// When a bound is reached, a client of those whom it bounds makes room: first one that does not read
// its answers, the longest waiting one; then an idle one, strangers before others, the longest idle one.
// If all of them do something or may do more, the new client is refused.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "varlink/Call.h"

#include <chrono>
#include <optional>
#include <vector>

namespace Varlink {

struct Limits {
   std::size_t messageBytes = 1u << 18;  // of one call
   std::size_t waitingBytes = 32u << 20; // of answers that a client does not take
   std::chrono::milliseconds stallTimeout = std::chrono::seconds( 10 ); // for one that takes none
   std::size_t connections = 256;
   std::size_t reservedForAdmins = 32; // and root
   std::size_t reservedForRoot = 8;    // of those
   std::size_t strangers = 16;         // all together
   std::size_t connectionsPerStranger = 4;
   std::size_t connectionsPerUser = 64; // except root
};

// A connection, as far as it matters here.
struct Seat {
   U64 number;
   U32 uid;
   Rank rank;
   bool lasting;                              // holds a watch, or something is bound to it
   std::optional< Gantry::Time > idleSince;   // if it is idle
   std::optional< Gantry::Time > unreadSince; // if its client does not take its answers
};

struct Newcomer {
   U32 uid;
   Rank rank;
};

struct Admission {
   bool admitted;
   std::optional< U64 > leaves; // the number of the connection that makes room
};

Admission admit( Newcomer const & newcomer, std::vector< Seat > const & seats,
                 Limits const & limits );

// Whether one more connection of that rank may last.
bool mayLast( Rank rank, std::vector< Seat > const & seats, Limits const & limits );

} // namespace Varlink
