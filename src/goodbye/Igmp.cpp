#include "goodbye/Igmp.h"

#include "goodbye/Bytes.h"

namespace Goodbye {

namespace {

constexpr U8 protocol = 2;
constexpr std::size_t checksumAt = 2;

Frame frame( Route< Ipv4 > const & route, Bytes unit ) {
   unit.u16At( checksumAt, internetChecksum( unit.view() ) );
   return routerAlertFrame( route, protocol, unit.view() );
}

} // namespace

Frame igmp2Leave( Mac const & source, Ipv4 const & address, Ipv4 const & group ) {
   constexpr U8 leaveGroup = 0x17;
   return frame( { source, address, Ipv4( "224.0.0.2" ) },
                 Bytes().u8( leaveGroup ).u8( 0 ).u16( 0 ).ip( group ) );
}

Frame igmp3Leave( Mac const & source, Ipv4 const & address, std::vector< Ipv4 > const & groups ) {
   constexpr U8 report = 0x22, changeToInclude = 3;
   Bytes unit;
   unit.u8( report ).u8( 0 ).u16( 0 ).u16( 0 ).u16( static_cast< unsigned >( groups.size() ) );
   for ( auto const & group : groups ) {
      unit.u8( changeToInclude ).u8( 0 ).u16( 0 ).ip( group ); // no sources
   }
   return frame( { source, address, Ipv4( "224.0.0.22" ) }, unit );
}

} // namespace Goodbye
