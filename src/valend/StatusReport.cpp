#include "valend/StatusReport.h"

#include "valend/ShutdownJson.h"

namespace Valend {

namespace {

constexpr std::size_t ethernetHeader = 14;

Json orNull( std::string const & text ) {
   return text.empty() ? Json() : Json( text );
}

} // namespace

Json StatusReport::interface( InterfaceConfig const & config ) const {
   auto const & name = config.name;
   auto const netNs = feeder_.config().netNsOf( config.vrf );
   auto const device = port_.device( { netNs, config.device } );
   auto const status = store_.statusDir->intfStatus( Corvid::IntfId( name ) );
   bool const ready = status && status->shouldDelay();
   auto const remaining = controller_.remaining( name );
   auto const totals = controller_.totals( name );
   return {
      { "name", name },
      { "device", config.device },
      { "vrf", config.vrf },
      { "namespace", netNs },
      { "link", !device      ? "absent"
                : device->up ? "up"
                             : "down" },
      { "carrier", device && device->carrier },
      { "ifIndex", device ? Json( device->ifIndex ) : Json() },
      { "mtu", device ? Json( device->mtu ) : Json() },
      { "ready", ready },
      { "notReady", ready ? Json() : Json( whyNotReady( config, device.has_value() ) ) },
      { "delayed", status && status->delayed() },
      { "remainingMs", remaining ? Json( remaining->count() ) : Json() },
      { "shuttingDown", controller_.running( name ) },
      { "frames", frames( name, device ? &*device : nullptr ) },
      { "shutdowns", totals.shutdowns },
      { "sent", totals.sent },
      { "failed", totals.failed },
      { "lastError", orNull( totals.failReason ) },
      { "aborts", totals.aborts },
      { "withoutGoodbye", controller_.downWithoutGoodbye( { netNs, config.device } ) },
   };
}

// The first thing in the way, nearest to the operator's own doing first.
std::string StatusReport::whyNotReady( InterfaceConfig const & config, bool hasDevice ) const {
   if ( !store_.configDir->globalConfig() ) {
      return "feature off";
   }
   if ( !config.shutdownDelay ) {
      return "not supported";
   }
   if ( !feeder_.config().hasFrames( config.name ) ) {
      return "no messages";
   }
   auto const trouble = feeder_.vrfTrouble( config.vrf );
   if ( !trouble.empty() ) {
      return feeder_.namespaceMissing( config.vrf ) ? "namespace missing" : trouble;
   }
   return hasDevice ? "not ready yet" : "no device";
}

Json StatusReport::frames( std::string const & interface, LinkDevice const * device ) const {
   auto agents = Json::array();
   for ( auto const & [ agent, messages ] : feeder_.config().agents ) {
      auto const found = messages.find( interface );
      if ( found == messages.end() ) {
         continue;
      }
      auto tooLong = Json::array();
      for ( std::size_t i = 0; i < found->second.size(); ++i ) {
         auto const bytes = found->second[ i ].size();
         if ( device && device->mtu && bytes > device->mtu + ethernetHeader ) {
            tooLong.push_back( { { "frame", i + 1 },
                                 { "bytes", bytes },
                                 { "limit", device->mtu + ethernetHeader } } );
         }
      }
      agents.push_back( { { "agent", agent },
                          { "count", found->second.size() },
                          { "tooLong", std::move( tooLong ) } } );
   }
   return agents;
}

Json StatusReport::interfaces() const {
   auto list = Json::array();
   for ( auto const & [ name, config ] : feeder_.config().interfaces ) {
      list.push_back( interface( config ) );
   }
   return list;
}

Json StatusReport::vrfs() const {
   auto list = Json::array( { vrf( defaultVrf ) } );
   for ( auto const & [ name, netNs ] : feeder_.config().vrfs ) {
      list.push_back( vrf( name ) );
   }
   return list;
}

Json StatusReport::vrf( std::string const & name ) const {
   return { { "name", name },
            { "namespace", feeder_.config().netNsOf( name ) },
            { "trouble", orNull( feeder_.vrfTrouble( name ) ) } };
}

Json StatusReport::record( ShutdownRecord const & record ) {
   return toJson( record );
}

} // namespace Valend
