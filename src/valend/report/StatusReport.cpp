#include "valend/report/StatusReport.h"

#include "settings/Hex.h"
#include "valend/report/OrNull.h"
#include "valend/shutdown/ShutdownJson.h"

namespace Valend {

namespace {

constexpr std::size_t ethernetHeader = 14;

Json framesJson( Settings::Frames const & frames ) {
   auto texts = Json::array();
   for ( auto const & frame : frames ) {
      texts.push_back( Settings::toHex( frame ) );
   }
   return texts;
}

Json configuredMessage( std::string const & agent, std::string const & interface,
                        Settings::Frames const & frames ) {
   return { { "agent", agent },
            { "interface", interface },
            { "frames", framesJson( frames ) },
            { "lifetime", "configuration" },
            { "inForce", true },
            { "owner", nullptr },
            { "learned", Json::array() } };
}

Json publishedMessage( Publications const & publications, SpeakersReport const & speakers,
                       Publications::Message const & message ) {
   return { { "agent", message.agent },
            { "interface", message.interface },
            { "frames", framesJson( message.frames ) },
            { "lifetime", textOf( message.lifetime ) },
            { "inForce", publications.isActive( message ) },
            { "owner", message.owner.empty() ? Json() : Json( message.owner ) },
            { "learned", speakers.learned( message ) } };
}

} // namespace

Json StatusReport::interface( Settings::InterfaceConfig const & config ) const {
   auto const & name = config.name;
   auto const netNs = feeder_.config().netNsOf( config.vrf );
   auto const device = this->device( config );
   auto const notReady = this->notReady( config );
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
      { "ready", notReady.empty() },
      { "notReady", orNull( notReady ) },
      { "delayed", remaining.has_value() }, // also after a change of its configuration
      { "remainingMs", remaining ? Json( remaining->count() ) : Json() },
      { "shuttingDown", controller_.running( name ) },
      { "retrying", orNull( controller_.whyRetrying( name ) ) },
      { "frames", frames( name, device ? &*device : nullptr ) },
      { "shutdowns", totals.shutdowns },
      { "sent", totals.sent },
      { "failed", totals.failed },
      { "lastError", orNull( totals.failReason ) },
      { "aborts", totals.aborts },
      { "withoutGoodbye", controller_.downWithoutGoodbye( { netNs, config.device } ) },
   };
}

bool StatusReport::ready( std::string const & interface ) const {
   auto const status = store_.statusDir->intfStatus( Corvid::IntfId( interface ) );
   return status && status->shouldDelay() && usable( interface );
}

// The library takes an interface for ready whose VRF has no endpoint.
bool StatusReport::usable( std::string const & interface ) const {
   auto const & interfaces = feeder_.config().interfaces;
   auto const found = interfaces.find( interface );
   return found == interfaces.end() || feeder_.vrfError( found->second.vrf ).empty();
}

// The first requirement that is not met.
std::string StatusReport::notReady( Settings::InterfaceConfig const & config ) const {
   if ( ready( config.name ) ) {
      return "";
   }
   if ( !store_.configDir->globalConfig() ) {
      return "delay disabled";
   }
   if ( !config.shutdownDelay ) {
      return "delay disabled for this interface";
   }
   if ( !feeder_.config().hasFrames( config.name ) ) {
      return "no frames";
   }
   auto const error = feeder_.vrfError( config.vrf );
   if ( !error.empty() ) {
      return feeder_.namespaceMissing( config.vrf ) ? "namespace missing" : error;
   }
   auto const device = this->device( config );
   if ( !device ) {
      return "no device";
   }
   return device->linkLayer.empty() ? "not ready yet"
                                    : "not an Ethernet device (link/" + device->linkLayer + ")";
}

// All of them, met or not, with details.
Json StatusReport::requirements( Settings::InterfaceConfig const & config ) const {
   auto list = Json::array();
   auto const add = [ & ]( char const * what, bool met, std::string const & detail ) {
      list.push_back( { { "what", what }, { "met", met }, { "detail", detail } } );
   };
   auto const & all = feeder_.config();
   bool const on = store_.configDir->globalConfig() != nullptr;
   add( "delay enabled", on,
        on ? "shutdown-delay-ms is " + std::to_string( all.shutdownDelayMs.value_or( 0 ) )
           : "shutdown-delay-ms is not set" );
   add( "delay enabled for this interface", config.shutdownDelay,
        config.shutdownDelay ? "" : "shutdown-delay is false in its configuration" );
   std::string agents;
   for ( auto const & [ agent, messages ] : all.agents ) {
      auto const found = messages.find( config.name );
      if ( found != messages.end() ) {
         agents +=
            ( agents.empty() ? "" : ", " ) + agent + " " + std::to_string( found->second.size() );
      }
   }
   add( "frames queued", !agents.empty(), agents.empty() ? "no agent has frames for it" : agents );
   auto const netNs = all.netNsOf( config.vrf );
   auto const error = feeder_.vrfError( config.vrf );
   add( "VRF ready", error.empty(),
        error.empty() ? "VRF " + config.vrf + ", namespace " + netNs
                      : error + kernelVrfHint( config.vrf ) );
   auto const found = device( config );
   add( "device present", found.has_value(),
        found ? config.device + ", index " + std::to_string( found->ifIndex )
              : "no device \"" + config.device + "\" in namespace \"" + netNs + "\"" );
   bool const isEthernet = found && found->linkLayer.empty();
   add( "Ethernet device", isEthernet,
        !found       ? ""
        : isEthernet ? config.device + " carries Ethernet frames"
                     : config.device + " is link/" + found->linkLayer +
                          ", which does not carry Ethernet frames" );
   bool const ready = this->ready( config.name );
   add( "managed by libvalen", ready, ready ? "" : "once everything above is met" );
   return list;
}

// What to do if the operator meant a "vrf" device of the kernel. The VRFs here are namespaces.
std::string StatusReport::kernelVrfHint( std::string const & vrf ) const {
   auto const & netNs = feeder_.config().netNsOf( vrf );
   for ( auto const & name : { netNs, vrf } ) {
      if ( feeder_.namespaceMissing( vrf ) && port_.device( { Settings::defaultVrf, name } ) ) {
         return "; there is a device \"" + name +
                "\": for an interface that is enslaved to a vrf device, leave out \"vrf\"";
      }
   }
   return "";
}

std::optional< LinkDevice > StatusReport::device( Settings::InterfaceConfig const & config ) const {
   return port_.device( { feeder_.config().netNsOf( config.vrf ), config.device } );
}

Json StatusReport::messages( Publications const & publications, SpeakersReport const & speakers,
                             std::string const & interface ) {
   auto list = Json::array();
   for ( auto const & [ agent, messages ] : publications.config().agents ) {
      if ( auto const found = messages.find( interface ); found != messages.end() ) {
         list.push_back( configuredMessage( agent, interface, found->second ) );
      }
   }
   for ( auto const * const message : publications.messagesFor( interface ) ) {
      list.push_back( publishedMessage( publications, speakers, *message ) );
   }
   return list;
}

std::optional< Json > StatusReport::nextMessage( Publications const & publications,
                                                 SpeakersReport const & speakers,
                                                 MessagePlace & place ) {
   auto const & agents = publications.config().agents;
   auto agent = place.published ? agents.end() : agents.lower_bound( place.agent );
   for ( ; agent != agents.end(); ++agent ) {
      auto const & [ name, messages ] = *agent;
      auto const next =
         name == place.agent ? messages.upper_bound( place.interface ) : messages.begin();
      if ( next != messages.end() ) {
         place = { false, name, next->first, true };
         return configuredMessage( name, next->first, next->second );
      }
   }
   if ( !place.published ) {
      place = { true, "", "", true }; // before all others: no name is empty
   }
   auto const next =
      publications.messages().upper_bound( { place.agent, place.interface, place.ofDatabase } );
   if ( next == publications.messages().end() ) {
      return std::nullopt;
   }
   place = { true, next->first.agent, next->first.interface, next->first.ofDatabase };
   return publishedMessage( publications, speakers, next->second );
}

Json StatusReport::tooLong( Settings::InterfaceConfig const & config,
                            std::string const & agent ) const {
   auto const found = device( config );
   for ( auto const & each : frames( config.name, found ? &*found : nullptr ) ) {
      if ( each[ "agent" ] == agent ) {
         return each[ "tooLong" ];
      }
   }
   return Json::array();
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

Json StatusReport::vrfs() const {
   auto list = Json::array( { vrf( Settings::defaultVrf ) } );
   for ( auto const & [ name, netNs ] : feeder_.config().vrfs ) {
      list.push_back( vrf( name ) );
   }
   return list;
}

Json StatusReport::vrf( std::string const & name ) const {
   return { { "name", name },
            { "namespace", feeder_.config().netNsOf( name ) },
            { "error", orNull( feeder_.vrfError( name ) ) } };
}

Json StatusReport::record( ShutdownRecord const & record ) {
   return toJson( record );
}

} // namespace Valend
