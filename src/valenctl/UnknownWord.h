// Words of a command line that do not exist, and the nearest ones that do.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

// The first word that names a command or an option that does not exist, with the nearest one:
// `unknown command "statsu"; did you mean "status"?`. When all exist but a command must follow:
// "command missing". Otherwise empty.
std::string unknownWord( CLI::App const & app, std::vector< std::string > const & words );

// The candidate that is most like `word`: it begins with it, or differs by a slip or two of the fingers.
// Empty when none is, or several are equally.
std::string nearest( std::string const & word, std::vector< std::string > const & candidates );

} // namespace Valenctl
