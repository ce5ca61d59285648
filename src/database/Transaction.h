// Commands that the server runs together or not at all.
#pragma once

#include "database/Connection.h"

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Database {

// How long to wait before the next attempt, at first and at most, after a server has refused one.
constexpr std::chrono::milliseconds firstRetry{ 200 };
constexpr std::chrono::milliseconds lastRetry{ 800 };

using Command = std::vector< std::string_view >;

// Calls `done` once with what the server refused, empty if it ran all, and then with its reply to each command; or not,
// if the connection is lost.
void runTogether(
   Connection & connection, std::vector< Command > const & commands,
   std::function< void( std::string const & error, std::vector< Reply > const & replies ) > done );

} // namespace Database
