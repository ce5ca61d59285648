// What every section of the YAML files needs: errors with their place, mappings of known keys, lists
// and single values.
#pragma once

#include "settings/ConfigReader.h"

#include <functional>
#include <optional>
#include <yaml-cpp/yaml.h>

namespace Settings {

class YamlReader {
 protected:
   using Handler = std::function< void( YAML::Node const & value ) >;
   using KeyedHandler = std::function< void( YAML::Node const & key, YAML::Node const & value ) >;
   struct Key {
      std::string name;
      Handler handler;
   };

   // What is read next comes from this file. Its errors are listed after those of the files that
   // were named before it.
   void fileIs( std::string const & file );
   std::string const & file() const { return files_[ current_ ]; }
   std::vector< std::string > const & files() const { return files_; }

   // The file's one document; an undefined node, and an error, when it does not parse.
   YAML::Node document( std::string const & text );

   Place placeOf( YAML::Node const & node ) const { return placeOf( node.Mark() ); }
   void error( YAML::Node const & node, std::string text );
   void error( YAML::Mark const & mark, std::string text );
   // In order of files and places, at most maxErrors (Limits.h); then how many more there are.
   std::vector< ConfigError > listedErrors();
   std::size_t errorCount() const { return errorCount_; }

   // Calls the handler of each key that `node` has. `what` is the mapping's name in errors.
   void mapping( YAML::Node const & node, std::string const & what,
                 std::vector< Key > const & keys );
   // Calls `handler` for each key. Any key is allowed, but none twice.
   void keyed( YAML::Node const & node, std::string const & what, KeyedHandler const & handler );
   // Calls `handler` for each element; a node that is absent or empty has none.
   void sequence( YAML::Node const & node, std::string const & what, Handler const & handler );

   // The text of a single value; empty when the node is null; empty, and an error, when it is a list
   // or a mapping.
   std::string scalar( YAML::Node const & node, std::string const & what );
   bool truth( YAML::Node const & node, std::string const & what );
   // A key with a name, which must be given: "name" of a "VRF".
   struct NameKey {
      char const * owner;
      char const * key;
      std::size_t maxBytes;
   };
   // The name at `node`, a value of the mapping `parent`; nothing, and an error, when it is missing or
   // not valid.
   std::optional< std::string > requiredName( YAML::Node const & parent, YAML::Node const & node,
                                              NameKey const & nameKey );

   // In quotes, and printable.
   static std::string quoted( std::string const & text );
   // "\"a\", \"b\" or \"c\"": what an error expects.
   static std::string listed( std::vector< std::string > const & names );
   // " (first defined at valen.yaml:3:1)"
   static std::string firstDefinedAt( Place const & place );

   // Whether the node has a value.
   static bool isGiven( YAML::Node const & node ) { return node.IsDefined() && !node.IsNull(); }

 private:
   struct Found {
      std::size_t file; // its number in files_
      ConfigError error;
   };

   Place placeOf( YAML::Mark const & mark ) const;

   std::vector< std::string > files_;
   std::size_t current_ = 0;
   std::vector< Found > errors_; // the first ones, in order
   std::size_t errorCount_ = 0;
   std::size_t values_ = 0; // of the documents so far
};

} // namespace Settings
