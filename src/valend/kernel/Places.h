// Where the configuration has the link of an interface.
#pragma once

#include "settings/Config.h"
#include "valend/kernel/LinkPort.h"

#include <map>
#include <optional>

namespace Valend {

LinkPlace placeOf( Settings::Config const & config, Settings::InterfaceConfig const & interface );

// The same for an interface that may have been removed since: then its link is still where it was
// `before`. Nothing if that belongs to another interface now.
std::optional< LinkPlace > placeNow( Settings::Config const & config, std::string const & interface,
                                     LinkPlace const & before );

// Finds the interface of a link, without a look at each when many links change.
class InterfaceAt {
 public:
   // `config` must outlive this.
   explicit InterfaceAt( Settings::Config const & config ) : config_( config ) {}

   // The configuration has changed. Until this is called, only the search takes longer.
   void configChanged() { outdated_ = true; }
   // The interface whose link is at this place, or a null pointer.
   Settings::InterfaceConfig const * find( LinkPlace const & place );

 private:
   Settings::Config const & config_;
   bool outdated_ = true;
   std::map< LinkPlace, std::string > names_; // as they were
};

} // namespace Valend
