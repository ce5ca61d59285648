#include "goodbye/RouterAdvertisement.h"

#include <tins/icmpv6.h>

namespace Goodbye {

Frame routerAdvertisementGoodbye( Mac const & source, Ipv6 const & linkLocal ) {
   constexpr U8 hopLimit = 255; // receivers drop others, which may have been forwarded
   Tins::ICMPv6 advertisement( Tins::ICMPv6::ROUTER_ADVERT );
   advertisement.router_lifetime( 0 );
   advertisement.source_link_layer_addr( source );
   return ipv6Frame( { source, linkLocal, Ipv6( "ff02::1" ) }, hopLimit, advertisement );
}

} // namespace Goodbye
