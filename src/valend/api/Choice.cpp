#include "valend/api/Choice.h"

#include "valend/base/Errors.h"

#include <set>

namespace Valend {

void Choice::require() const {
   bool const some = names || vrf || device || ready.value_or( false );
   if ( some == all.value_or( false ) ) {
      throw Errors::badSelection();
   }
}

std::vector< std::string > Choice::interfaces( Settings::Config const & config,
                                               Store const & store ) const {
   if ( vrf && *vrf != Settings::defaultVrf && !config.vrfs.contains( *vrf ) ) {
      throw Errors::noSuchVrf( *vrf );
   }
   auto const given = names.value_or( std::vector< std::string >() );
   std::set< std::string > const named( given.begin(), given.end() );
   for ( auto const & name : named ) {
      if ( !config.interfaces.contains( name ) ) {
         throw Errors::noSuchInterface( name );
      }
   }
   std::vector< std::string > chosen;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      if ( ( !names || named.contains( name ) ) && has( interface, store ) ) {
         chosen.push_back( name );
      }
   }
   return chosen;
}

bool Choice::has( Settings::InterfaceConfig const & interface, Store const & store ) const {
   auto const status = store.statusDir->intfStatus( Corvid::IntfId( interface.name ) );
   return ( !vrf || interface.vrf == *vrf ) && ( !device || interface.device == *device ) &&
          ( !ready.value_or( false ) || ( status && status->shouldDelay() ) );
}

} // namespace Valend
