// Commands that the server runs together or not at all.
#pragma once

#include "database/Connection.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Database {

using Command = std::vector< std::string_view >;

// Calls `done` once with what the server refused, empty if it ran all; or not, if the connection is lost.
void runTogether( Connection & connection, std::vector< Command > const & commands,
                  std::function< void( std::string const & error ) > done );

} // namespace Database
