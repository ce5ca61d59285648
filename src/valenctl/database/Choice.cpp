#include "valenctl/database/Choice.h"

#include <algorithm>

namespace Valenctl {

namespace {

// Whether an interface has what is selected, apart from its name.
bool matches( Json const & interface, Json const & selection ) {
   auto const vrf = textField( selection, "vrf" );
   auto const device = textField( selection, "device" );
   return ( vrf.empty() || textField( interface, "vrf" ) == vrf ) &&
          ( device.empty() || textField( interface, "device" ) == device ) &&
          ( !flagField( selection, "ready" ) || flagField( interface, "ready" ) );
}

bool hasVrf( Host const & host, std::string const & name ) {
   auto const vrfs = listField( host.daemon, "vrfs" );
   return name == "default" || std::any_of( vrfs.begin(), vrfs.end(), [ & ]( Json const & vrf ) {
             return textField( vrf, "name" ) == name;
          } );
}

void addNamed( std::vector< Chosen > & chosen, Host const & host,
               std::vector< std::string > const & names ) {
   for ( auto const & name : names ) {
      if ( !host.interfaces.contains( name ) ) {
         throw NoSuchChoice( host.name + ": interface \"" + name + "\" is not configured" );
      }
      chosen.push_back( { &host, name } );
   }
}

} // namespace

std::vector< Chosen > choose( std::vector< Host > const & hosts, Json const & selection ) {
   std::vector< Chosen > chosen;
   auto names = textsField( selection, "interfaces" );
   std::sort( names.begin(), names.end() );
   names.erase( std::unique( names.begin(), names.end() ), names.end() );
   auto const vrf = textField( selection, "vrf" );
   bool alive = false, vrfExists = vrf.empty();
   for ( auto const & host : hosts ) {
      if ( host.stale ) {
         continue;
      }
      alive = true;
      vrfExists = vrfExists || hasVrf( host, vrf );
      if ( !names.empty() ) {
         addNamed( chosen, host, names );
         continue;
      }
      for ( auto const & [ name, each ] : host.interfaces ) {
         if ( matches( each.interface, selection ) ) {
            chosen.push_back( { &host, name } );
         }
      }
   }
   if ( alive && !vrfExists ) {
      throw NoSuchChoice( "VRF \"" + vrf + "\" is not configured on any of the hosts" );
   }
   return chosen;
}

} // namespace Valenctl
