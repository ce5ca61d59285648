// A configuration that is to be applied, with what the loop would take long to work out.
#pragma once

#include "settings/Config.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Valend {

// A plain value: it may be made, and destroyed, in another thread.
class Plan {
 public:
   Plan() : Plan( Settings::Config() ) {}
   explicit Plan( Settings::Config config );
   explicit Plan( std::shared_ptr< Settings::Config const > config ); // not null

   Settings::Config const & config() const noexcept { return *config_; }

   // The frames that the configuration has for the interface, by agent.
   using Frames = std::vector< std::pair< std::string, Settings::Frames > >;
   Frames const & framesFor( std::string const & interface ) const;

 private:
   std::shared_ptr< Settings::Config const > config_;
   std::map< std::string, Frames > frames_; // by interface
};

using PlanPtr = std::shared_ptr< Plan const >;
using ConfigPtr = std::shared_ptr< Settings::Config const >;

} // namespace Valend
