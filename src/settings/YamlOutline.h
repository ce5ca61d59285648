// What a YAML text is made of, found out without building a tree of it: so that a text which would take too much
// memory is rejected before it does.
#pragma once

#include <string>
#include <vector>
#include <yaml-cpp/yaml.h>

namespace Settings {

struct YamlOutline {
   std::vector< YAML::Mark > documents; // where the first two begin, as far as there are any
   std::size_t values = 0;              // keys, texts, lists and mappings, each alias as one
};

// Why a text is not read any further.
struct YamlTooLarge {
   YAML::Mark mark;
   std::string text; // "more than 500000 values, which is the limit"
};

// Throws YamlTooLarge when lists and mappings are nested deeper than maxDepth (settings/Limits.h), or when there are
// more than `limit` values; YAML::Exception when the text does not parse.
YamlOutline outlineOf( std::string const & text, std::size_t limit );

} // namespace Settings
