// What may come next on a command line that is being typed. The shells' scripts ask for it with
// `valenctl complete WORD...`, so that commands and options are described in one place.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

// The first argument by which the shells' scripts ask. It is handled before the command line is
// parsed, since the words after it are not complete yet.
inline constexpr char const * completionCommand = "complete";

struct Candidate {
   std::string text;
   std::string help;

   bool operator==( Candidate const & ) const = default;
};

struct Completion {
   // What only valend, the kernel or the file system know, to be offered as well (Names.h).
   enum class Also {
      nothing,
      interfaces,
      vrfs,
      devices,      // of valend's interfaces
      agents,       // that queued frames
      localDevices, // in a namespace of this machine
      namespaces,
      hosts, // of the database
      files
   };

   std::vector< Candidate > candidates;
   Also also = Also::nothing;
};

// What `words` may go on with. The last word is the one being typed, possibly empty; only candidates
// that begin with it are offered.
Completion completion( CLI::App const & app, std::vector< std::string > const & words );

// The value of the last such option among the words; `otherwise` if there is not one.
std::string valueIn( std::vector< std::string > const & words, std::string const & option,
                     std::string const & otherwise );

} // namespace Valenctl
