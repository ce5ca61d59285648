// What the operator sees of the agent: a plain picture of everything, made on request.
#pragma once

#include "valend/configuration/Feeder.h"
#include "valend/configuration/Publications.h"
#include "valend/kernel/LinkPort.h"
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

   // One configured interface, as the API's type Interface has it.
   Json interface( Settings::InterfaceConfig const & config ) const;
   // All of them, by name.
   Json interfaces() const;
   // The VRFs, as the API's type Vrf has them.
   Json vrfs() const;
   // What it takes for the interface to be ready, as the API's type Requirement has it.
   Json requirements( Settings::InterfaceConfig const & config ) const;
   // Everybody's frames, as the API's type Message has them: the configuration's, then what is
   // published.
   Json messages( Publications const & publications ) const;
   // The agent's frames that the interface's device, as it is now, cannot take.
   Json tooLong( Settings::InterfaceConfig const & config, std::string const & agent ) const;
   // A shutdown, as the API's type Shutdown has it.
   static Json record( ShutdownRecord const & record );

 private:
   std::string whyNotReady( Settings::InterfaceConfig const & config, bool hasDevice ) const;
   Json frames( std::string const & interface, LinkDevice const * device ) const;
   std::optional< LinkDevice > device( Settings::InterfaceConfig const & config ) const;
   Json vrf( std::string const & name ) const;

   Store const & store_;
   Feeder const & feeder_;
   LinkPort const & port_;
   LinkController const & controller_;
};

} // namespace Valend
