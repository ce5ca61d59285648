// Which interfaces a call is about.
#pragma once

#include "settings/Config.h"
#include "valend/store/Store.h"

#include <optional>
#include <string>
#include <vector>

namespace Valend {

struct Choice {
   std::optional< std::vector< std::string > > names;
   std::optional< std::string > vrf;
   std::optional< std::string > device;
   std::optional< bool > ready;
   std::optional< bool > all;

   // For a call that changes something: nothing chosen must not mean everything. Throws Refusal
   // "BadSelection" unless there is a selector: `all` alone, or any of the others.
   void require() const;

   // The interfaces' names, each once, in order: those named, or all; of these the ones in the VRF, on
   // the device, ready. Throws Refusal: "NoSuchInterface", "NoSuchVrf".
   std::vector< std::string > interfaces( Settings::Config const & config,
                                          Store const & store ) const;

 private:
   bool has( Settings::InterfaceConfig const & interface, Store const & store ) const;
};

} // namespace Valend
