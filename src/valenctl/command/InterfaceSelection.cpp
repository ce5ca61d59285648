#include "valenctl/command/InterfaceSelection.h"

#include <CLI/CLI.hpp>

namespace Valenctl {

void InterfaceSelection::addTo( CLI::App & app ) {
   auto * const selection = app.add_option_group( "Interfaces (one of)" );
   selection->add_option( "INTERFACE", interfaces_, "Configured names" )->type_name( "" );
   selection->add_option( "--vrf", vrf_, "All interfaces of this VRF" )->type_name( "VRF" );
   selection
      ->add_option( "--device", device_,
                    "All interfaces on this kernel device, in any namespace; no match is not an "
                    "error" )
      ->type_name( "DEVICE" );
   selection->add_flag( "--ready", ready_, "All ready interfaces; no match is not an error" );
   selection->add_flag( "--all", all_, "All interfaces" );
   selection->require_option( 1 );
}

nlohmann::json InterfaceSelection::parameters() const {
   auto parameters = nlohmann::json::object();
   if ( !interfaces_.empty() ) {
      parameters[ "interfaces" ] = interfaces_;
   }
   if ( !vrf_.empty() ) {
      parameters[ "vrf" ] = vrf_;
   }
   if ( !device_.empty() ) {
      parameters[ "device" ] = device_;
   }
   if ( ready_ ) {
      parameters[ "ready" ] = true;
   }
   if ( all_ ) {
      parameters[ "all" ] = true;
   }
   return parameters;
}

} // namespace Valenctl
