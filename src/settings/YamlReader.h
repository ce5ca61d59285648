// What every section of the YAML files needs: errors with their place, mappings whose keys are all
// known, lists, and scalars of one kind.
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
      char const * name;
      Handler handler;
   };

   // The file that the nodes come from that are read next; its errors come behind those of the
   // files that were named before it.
   void fileIs( std::string const & file );
   std::string const & file() const { return files_[ current_ ]; }
   std::vector< std::string > const & files() const { return files_; }

   // The file's one document; an undefined node, and an error, when it does not parse.
   YAML::Node document( std::string const & text );

   Place placeOf( YAML::Node const & node ) const { return placeOf( node.Mark() ); }
   void error( YAML::Node const & node, std::string text );
   void error( YAML::Mark const & mark, std::string text );
   std::vector< ConfigError > sortedErrors();
   std::size_t errorCount() const { return errors_.size(); }

   // Calls the handler of each key that `node` has. `what` is the mapping's name in errors.
   void mapping( YAML::Node const & node, std::string const & what,
                 std::vector< Key > const & keys );
   // Calls `handler` for each key, which may be any but none twice.
   void keyed( YAML::Node const & node, std::string const & what, KeyedHandler const & handler );
   // Calls `handler` for each element; a node that is absent or empty has none.
   void sequence( YAML::Node const & node, std::string const & what, Handler const & handler );

   // The text of a scalar; empty, and an error, when the node is something else.
   std::string scalar( YAML::Node const & node, std::string const & what );
   bool truth( YAML::Node const & node, std::string const & what );
   // The name under a key of `parent` that must be there and fit; nothing, and an error, if not.
   std::optional< std::string > requiredName( YAML::Node const & parent, YAML::Node const & node,
                                              std::string const & what, std::size_t maxBytes );

   // Whether a node that was declared empty has been given a value since.
   static bool isGiven( YAML::Node const & node ) { return node.IsDefined() && !node.IsNull(); }

 private:
   struct Found {
      std::size_t file; // its number in files_
      ConfigError error;
   };

   Place placeOf( YAML::Mark const & mark ) const;

   std::vector< std::string > files_;
   std::size_t current_ = 0;
   std::vector< Found > errors_;
};

} // namespace Settings
