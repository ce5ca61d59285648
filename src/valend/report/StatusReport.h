// What the control API answers about interfaces, VRFs, frames and shutdowns. Computed on request.
#pragma once

#include "valend/configuration/Feeder.h"
#include "valend/configuration/Publications.h"
#include "valend/kernel/LinkPort.h"
#include "valend/report/SpeakersReport.h"
#include "valend/shutdown/LinkController.h"

#include <nlohmann/json.hpp>

namespace Valend {

using Json = nlohmann::json;

class StatusReport {
 public:
   // All must outlive the report.
   StatusReport( Store const & store, Feeder const & feeder, LinkPort const & port,
                 LinkController const & controller )
       : store_( store ), feeder_( feeder ), port_( port ), controller_( controller ) {}

   // Whether a shutdown of the interface would be delayed now.
   bool ready( std::string const & interface ) const;
   // Why a shutdown of the interface would not be delayed now; empty when it would.
   std::string notReady( Settings::InterfaceConfig const & config ) const;
   // One configured interface, the API's type Interface.
   Json interface( Settings::InterfaceConfig const & config ) const;
   // The VRFs, the API's type Vrf.
   Json vrfs() const;
   // What an interface needs to be ready, in the order in which an operator would check it.
   Json requirements( Settings::InterfaceConfig const & config ) const;
   // The frames of all agents for the interface, the API's type Message: those of the configuration, then the published
   // ones.
   static Json messages( Publications const & publications, SpeakersReport const & speakers,
                         std::string const & interface );
   // Where one is in the list of the frames for all interfaces. It stays valid whatever is added and removed.
   struct MessagePlace {
      bool published = false;
      std::string agent;
      std::string interface;
      bool ofDatabase = false;
   };
   // The next one in that list, to which `place` is set; nothing at the end.
   static std::optional< Json > nextMessage( Publications const & publications,
                                             SpeakersReport const & speakers,
                                             MessagePlace & place );
   // The agent's frames that exceed the limit of the interface's device as it is now.
   Json tooLong( Settings::InterfaceConfig const & config, std::string const & agent ) const;
   // A shutdown, the API's type ShutdownRecord.
   static Json record( ShutdownRecord const & record );

 private:
   bool usable( std::string const & interface ) const;
   std::string kernelVrfHint( std::string const & vrf ) const;
   Json frames( std::string const & interface, LinkDevice const * device ) const;
   std::optional< LinkDevice > device( Settings::InterfaceConfig const & config ) const;
   Json vrf( std::string const & name ) const;

   Store const & store_;
   Feeder const & feeder_;
   LinkPort const & port_;
   LinkController const & controller_;
};

} // namespace Valend
