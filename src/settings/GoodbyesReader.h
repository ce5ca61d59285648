// Reads the values of the key "goodbyes".
#pragma once

#include "settings/YamlReader.h"

#include <optional>

namespace Settings {

class GoodbyesReader : protected YamlReader {
 protected:
   // Nothing, and an error, when the value is not valid.
   std::optional< Goodbyes > goodbyesAt( YAML::Node const & node );

 private:
   std::optional< Goodbyes > listAt( YAML::Node const & node );
   void readProtocol( YAML::Node const & node, std::map< std::string, Place > & protocols );
};

} // namespace Settings
