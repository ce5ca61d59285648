// The file, line and column, or the key in a database, of everything that is configured.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Settings {

struct Place {
   std::string file;
   int line = 0; // from 1; 0: the whole file
   int column = 0;
   bool inDatabase = false; // then `file` is the key there, without the prefix

   // "valen.yaml:12:7", or only the file; "config:vrf:red".
   std::string text() const;
   bool operator==( Place const & ) const = default;
};

// The places of one configuration, by name.
struct Sources {
   using Places = std::map< std::string, Place >;

   std::vector< std::string > files; // in the order in which they were read
   Places settings;                  // "shutdown-delay-ms", "goodbyes", "trace.levels" ...
   Places vrfs;
   Places interfaces;
   Places agents;                            // where each is named first
   std::map< std::string, Places > messages; // by agent, then interface
   bool operator==( Sources const & ) const = default;
};

} // namespace Settings
