// What every section of a YAML file needs: errors with their place, mappings whose keys are all
// known, lists, and scalars of one kind.
#pragma once

#include "config/ConfigReader.h"

#include <functional>
#include <optional>
#include <yaml-cpp/yaml.h>

namespace ValenConfig {

class YamlReader {
 protected:
   using Handler = std::function< void( YAML::Node const & value ) >;
   using KeyedHandler = std::function< void( YAML::Node const & key, YAML::Node const & value ) >;
   struct Key {
      char const * name;
      Handler handler;
   };

   explicit YamlReader( std::string const & file ) : file_( file ) {}

   // The file's one document; an undefined node, and an error, when it does not parse.
   YAML::Node document( std::string const & text );

   void error( YAML::Node const & node, std::string text );
   void error( YAML::Mark const & mark, std::string text );
   std::vector< ConfigError > sortedErrors();

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
   std::string const file_;
   std::vector< ConfigError > errors_;
};

} // namespace ValenConfig
