// The choice of interfaces that commands about several of them share.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

// Interfaces given by name, VRF, device or readiness, or all of them.
class InterfaceSelection {
 public:
   // Adds the options to `app`, bound to this object; exactly one of them must be given.
   void addTo( CLI::App & app );

   // The parameters that valend expects for the selection.
   nlohmann::json parameters() const;
   // Whether interfaces were given by name.
   bool named() const noexcept { return !interfaces_.empty(); }

 private:
   std::vector< std::string > interfaces_;
   std::string vrf_;
   std::string device_;
   bool ready_ = false;
   bool all_ = false; // explicit, so that a forgotten argument does not mean all
};

} // namespace Valenctl
