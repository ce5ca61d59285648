// Reads one VRF, one interface or the delay, and checks what is wrong with it by itself: the files and the entities of a
// database are read by this.
#pragma once

#include "settings/GoodbyesReader.h"

#include <optional>
#include <string>

namespace Settings {

class ItemReader : protected GoodbyesReader {
 protected:
   // A name that is given outside the item, which must not have the key "name" then.
   using GivenName = std::optional< std::string >;

   // Each returns nothing, and an error, when it is not valid.
   std::optional< U16 > delayAt( YAML::Node const & node, std::string const & text );

   struct VrfItem {
      std::string name;
      std::optional< std::string > netNs; // nothing: an error
      YAML::Node nameNode;
      YAML::Node netNsNode;
   };
   // With a name that is valid.
   std::optional< VrfItem > vrfAt( YAML::Node const & node, GivenName const & given = {} );
   bool checkNamespace( YAML::Node const & node, std::string const & space );

   struct InterfaceItem {
      InterfaceConfig interface;
      YAML::Node nameNode;
      YAML::Node vrfNode;
      YAML::Node deviceNode; // that of the name, if no device is given
   };
   // With a name that is valid; the device is not checked.
   std::optional< InterfaceItem > interfaceAt( YAML::Node const & node,
                                               GivenName const & given = {} );
   bool checkDevice( YAML::Node const & node, InterfaceConfig const & interface );

   // What is wrong with an item beside others.
   static std::string unknownVrf( std::string const & vrf );
   static std::string namespaceTaken( std::string const & space, std::string const & byVrf,
                                      Place const & place );
   static std::string deviceTaken( InterfaceConfig const & interface,
                                   std::string const & byInterface, Place const & place );

 private:
   static void nameIs( YAML::Node & node, std::vector< Key > & keys, GivenName const & given );
};

} // namespace Settings
