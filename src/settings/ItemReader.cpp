#include "settings/ItemReader.h"

#include "platform/corvid/NamespaceName.h"
#include "platform/quill/Printable.h"
#include "types/L3Types.h"

#include <charconv>

namespace Settings {

namespace {

constexpr std::size_t maxDeviceBytes = 15; // the kernel's IFNAMSIZ without the final zero
constexpr std::size_t maxInterfaceBytes = 255;

} // namespace

// `node` becomes the one with the name.
void ItemReader::nameIs( YAML::Node & node, std::vector< Key > & keys, GivenName const & given ) {
   if ( given ) {
      node.reset( YAML::Node( *given ) );
   } else {
      keys.insert( keys.begin(), { "name", [ & ]( auto const & value ) { node.reset( value ); } } );
   }
}

std::optional< U16 > ItemReader::delayAt( YAML::Node const & node, std::string const & text ) {
   U32 value = 0;
   auto const [ end, code ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if ( text.empty() || code != std::errc() || end != text.data() + text.size() || value > 65535 ) {
      error( node,
             "shutdown-delay-ms is " + quoted( text ) + "; expected milliseconds from 0 to 65535" );
      return std::nullopt;
   }
   return static_cast< U16 >( value );
}

// --- VRFs ----------------------------------------------------------------------------------------

std::optional< ItemReader::VrfItem > ItemReader::vrfAt( YAML::Node const & node,
                                                        GivenName const & given ) {
   YAML::Node name, netNs;
   std::vector< Key > keys{
      { "namespace", [ & ]( auto const & value ) { netNs.reset( value ); } } };
   nameIs( name, keys, given );
   mapping( node, "a VRF", keys );
   auto const vrf = requiredName( node, name, { "VRF", "name", L3::VrfName::maxLength } );
   auto space =
      requiredName( node, netNs, { "VRF", "namespace", Corvid::NamespaceName::maxLength } );
   if ( !vrf ) {
      return std::nullopt;
   }
   if ( *vrf == defaultVrf ) {
      error( name, "VRF \"default\" always exists, as the network namespace of valend; "
                   "use another name" );
      return std::nullopt;
   }
   return VrfItem{ *vrf, std::move( space ), name, netNs };
}

bool ItemReader::checkNamespace( YAML::Node const & node, std::string const & space ) {
   if ( space == defaultVrf ) {
      error( node, "namespace \"default\" is reserved for VRF \"default\", the network "
                   "namespace of valend; use another name" );
      return false;
   }
   if ( space.find( '/' ) != std::string::npos || space == "." || space == ".." ) {
      error( node, "namespace " + quoted( space ) +
                      " is not a valid name; expected a name as in \"ip netns add NAME\"" );
      return false;
   }
   return true;
}

// --- Interfaces ----------------------------------------------------------------------------------

std::optional< ItemReader::InterfaceItem > ItemReader::interfaceAt( YAML::Node const & node,
                                                                    GivenName const & given ) {
   YAML::Node name, device, vrf;
   InterfaceConfig interface;
   std::vector< Key > keys{
      { "device", [ & ]( auto const & value ) { device.reset( value ); } },
      { "vrf", [ & ]( auto const & value ) { vrf.reset( value ); } },
      { "shutdown-delay",
        [ & ]( auto const & value ) {
           interface.shutdownDelay = truth( value, "shutdown-delay" );
        } },
      { "goodbyes", [ & ]( auto const & value ) { interface.goodbyes = goodbyesAt( value ); } } };
   nameIs( name, keys, given );
   mapping( node, "an interface", keys );
   auto const ownName = requiredName( node, name, { "interface", "name", maxInterfaceBytes } );
   if ( !ownName ) {
      return std::nullopt;
   }
   interface.name = *ownName;
   interface.device = isGiven( device ) ? scalar( device, "device" ) : interface.name;
   interface.vrf = isGiven( vrf ) ? scalar( vrf, "vrf" ) : defaultVrf;
   return InterfaceItem{ std::move( interface ), name, vrf, isGiven( device ) ? device : name };
}

bool ItemReader::checkDevice( YAML::Node const & node, InterfaceConfig const & interface ) {
   auto const & device = interface.device;
   bool const fits = !device.empty() && device.size() <= maxDeviceBytes && device != "." &&
                     device != ".." && device.find_first_of( "/: \t\n\v\f\r" ) == std::string::npos;
   if ( !fits ) {
      error( node, "device " + quoted( device ) + " of interface " + quoted( interface.name ) +
                      " is not a valid name; expected 1 to " + std::to_string( maxDeviceBytes ) +
                      " bytes without whitespace, \"/\" or \":\"" );
      return false;
   }
   if ( auto const where = Quill::unprintableIn( device ) ) {
      error( node, "device of interface " + quoted( interface.name ) +
                      " is not printable text: " + *where );
      return false;
   }
   return true;
}

// --- Beside others -------------------------------------------------------------------------------

std::string ItemReader::unknownVrf( std::string const & vrf ) {
   return "unknown VRF " + quoted( vrf ) + "; expected \"default\" or one of \"vrfs\"";
}

std::string ItemReader::namespaceTaken( std::string const & space, std::string const & byVrf,
                                        Place const & place ) {
   return "namespace " + quoted( space ) + " is already used by VRF " + quoted( byVrf ) + " (" +
          place.text() + "); each VRF needs its own";
}

std::string ItemReader::deviceTaken( InterfaceConfig const & interface,
                                     std::string const & byInterface, Place const & place ) {
   return "device " + quoted( interface.device ) + " in VRF " + quoted( interface.vrf ) +
          " is already used by interface " + quoted( byInterface ) + " (" + place.text() +
          "); each interface needs its own";
}

} // namespace Settings
