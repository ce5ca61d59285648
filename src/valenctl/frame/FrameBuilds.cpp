#include "valenctl/frame/FrameBuilds.h"

#include "goodbye/Igmp.h"
#include "goodbye/Mdns.h"
#include "goodbye/Ospf.h"
#include "goodbye/Pim.h"
#include "goodbye/Rip.h"
#include "goodbye/RouterAdvertisement.h"
#include "goodbye/SlowProtocols.h"
#include "goodbye/Vrrp.h"
#include "valenctl/frame/FrameOptions.h"

#include <cmath>
#include <memory>

namespace Valenctl {

namespace {

using List = std::vector< Goodbye::Frame >;

// The frames that `make` builds from `all`, with at most `most` values in each.
template < class Value, class Make >
List inParts( std::vector< Value > const & all, std::size_t most, Make const & make ) {
   List frames;
   for ( std::size_t begin = 0; begin < all.size(); begin += most ) {
      auto const first = all.begin() + static_cast< std::ptrdiff_t >( begin );
      auto const count = std::min( most, all.size() - begin );
      frames.push_back(
         make( std::vector< Value >( first, first + static_cast< std::ptrdiff_t >( count ) ) ) );
   }
   return frames;
}

CLI::Option * addVirtualRouter( CLI::App & app, unsigned & id ) {
   return app.add_option( "--vrid", id, "Virtual router ID" )
      ->type_name( "NUMBER" )
      ->required()
      ->check( CLI::Range( 1, 255 ) );
}

template < class Address >
Goodbye::VrrpGoodbye< Address >
vrrpGoodbye( FrameSender const & sender, unsigned id, Address const & source,
             std::vector< Address > const & addresses, double interval ) {
   if ( addresses.size() > Goodbye::maxVrrpAddresses ) {
      throw UsageError( "the virtual router has " + std::to_string( addresses.size() ) +
                        " addresses; at most " + std::to_string( Goodbye::maxVrrpAddresses ) +
                        " fit" );
   }
   return { static_cast< U8 >( id ), source, addresses,
            static_cast< U16 >( std::lround( interval ) ), sender.options().given.mac };
}

CLI::Option * addIpv6( CLI::App & app, bool & ipv6 ) {
   return app.add_flag( "-6,--ipv6", ipv6,
                        "Send over IPv6 from the link-local address (default: IPv4)" );
}

// Whether a frame that can be sent over either IP version is sent over IPv6.
bool overIpv6( FrameSender const & sender, bool asked ) {
   return asked || sender.options().given.linkLocal;
}

bool isIpv6( std::string const & text ) {
   return text.find( ':' ) != std::string::npos;
}

// Without --address, the sender's addresses are those of the host.
Goodbye::MdnsGoodbye withAddresses( Goodbye::MdnsGoodbye goodbye, FrameSender const & sender ) {
   if ( goodbye.host.empty() && goodbye.pointers.empty() ) {
      throw UsageError( "the frame needs records to withdraw: give --name or --pointer" );
   }
   if ( goodbye.host.empty() && !( goodbye.addresses.empty() && goodbye.addresses6.empty() ) ) {
      throw UsageError( "the addresses need the host's name: give --name" );
   }
   if ( !goodbye.host.empty() && goodbye.addresses.empty() && goodbye.addresses6.empty() ) {
      if ( auto const & ipv4 = sender.known().ipv4 ) {
         goodbye.addresses.push_back( ipv4->address );
      }
      if ( auto const & linkLocal = sender.known().linkLocal ) {
         goodbye.addresses6.push_back( *linkLocal );
      }
   }
   return goodbye;
}

} // namespace

FrameBuild raBuild( CLI::App & ) {
   return []( FrameSender const & sender ) {
      return List{ Goodbye::routerAdvertisementGoodbye( sender.mac(), sender.linkLocal() ) };
   };
}

FrameBuild vrrp2Build( CLI::App & app ) {
   struct Given {
      unsigned id = 0;
      unsigned interval = 1;
      std::vector< Goodbye::Ipv4 > addresses;
   };
   auto const given = std::make_shared< Given >();
   addVirtualRouter( app, given->id );
   addTexts(
      app, "--address", "ADDRESS", "Address of the virtual router; may be repeated",
      [ given ]( auto const & text ) { given->addresses.push_back( Goodbye::parseIpv4( text ) ); } )
      ->required();
   app.add_option( "--interval", given->interval,
                   "Seconds between advertisements; backups drop frames with another value" )
      ->type_name( "SECONDS" )
      ->capture_default_str()
      ->check( CLI::Range( 1, 255 ) );
   return [ given ]( FrameSender const & sender ) {
      return List{ Goodbye::vrrp2Goodbye( vrrpGoodbye( sender, given->id, sender.ipv4().address,
                                                       given->addresses, given->interval ) ) };
   };
}

FrameBuild vrrp3Build( CLI::App & app ) {
   struct Given {
      unsigned id = 0;
      double interval = 1;
      std::vector< Goodbye::Ipv4 > addresses;
      std::vector< Goodbye::Ipv6 > addresses6;
   };
   auto const given = std::make_shared< Given >();
   addVirtualRouter( app, given->id );
   addTexts( app, "--address", "ADDRESS",
             "Address of the virtual router; may be repeated. With IPv6, the link-local one first",
             [ given ]( auto const & text ) {
                if ( isIpv6( text ) ) {
                   given->addresses6.push_back( Goodbye::parseIpv6( text ) );
                } else {
                   given->addresses.push_back( Goodbye::parseIpv4( text ) );
                }
             } )
      ->required();
   app.add_option( "--interval", given->interval, "Seconds between advertisements" )
      ->type_name( "SECONDS" )
      ->capture_default_str()
      ->check( CLI::Range( 0.01, 40.95 ) );
   return [ given ]( FrameSender const & sender ) {
      constexpr double unitsPerSecond = 100;
      auto const interval = given->interval * unitsPerSecond;
      if ( !given->addresses.empty() && !given->addresses6.empty() ) {
         throw UsageError( "a virtual router has IPv4 or IPv6 addresses, not both" );
      }
      return List{ given->addresses6.empty()
                      ? Goodbye::vrrp3Goodbye( vrrpGoodbye(
                           sender, given->id, sender.ipv4().address, given->addresses, interval ) )
                      : Goodbye::vrrp3Goodbye( vrrpGoodbye( sender, given->id, sender.linkLocal(),
                                                            given->addresses6, interval ) ) };
   };
}

FrameBuild pimBuild( CLI::App & app ) {
   auto const ipv6 = std::make_shared< bool >( false );
   addIpv6( app, *ipv6 );
   return [ ipv6 ]( FrameSender const & sender ) {
      return List{ overIpv6( sender, *ipv6 )
                      ? Goodbye::pimGoodbye( sender.mac(), sender.linkLocal() )
                      : Goodbye::pimGoodbye( sender.mac(), sender.ipv4().address ) };
   };
}

FrameBuild ospfBuild( CLI::App & app ) {
   auto const given = std::make_shared< Goodbye::OspfGoodbye >();
   addText( app, "--router-id", "ID", "Router ID, such as 192.0.2.1",
            [ given ]( auto const & text ) { given->router = Goodbye::parseIpv4( text ); } )
      ->required();
   addText( app, "--area", "ID", "Area ID (default: the backbone, 0.0.0.0)",
            [ given ]( auto const & text ) { given->area = Goodbye::parseIpv4( text ); } );
   app.add_option( "--hello-interval", given->helloInterval, "Seconds; the neighbors' value" )
      ->type_name( "SECONDS" )
      ->capture_default_str();
   app.add_option( "--dead-interval", given->deadInterval, "Seconds; the neighbors' value" )
      ->type_name( "SECONDS" )
      ->capture_default_str();
   app.add_flag( "--stub", given->stub, "The area is a stub area" );
   return [ given ]( FrameSender const & sender ) {
      auto goodbye = *given;
      goodbye.source = sender.mac();
      goodbye.address = sender.ipv4();
      return List{ Goodbye::ospfGoodbye( goodbye ) };
   };
}

FrameBuild igmpBuild( CLI::App & app ) {
   struct Given {
      unsigned version = 3;
      std::vector< Goodbye::Ipv4 > groups;
   };
   auto const given = std::make_shared< Given >();
   addTexts( app, "--group", "ADDRESS", "Group to leave; may be repeated",
             [ given ]( auto const & text ) {
                given->groups.push_back( Goodbye::parseIpv4Group( text ) );
             } )
      ->required();
   app.add_option( "--version", given->version,
                   "IGMP version: 2 sends one frame for each group, 3 one for all" )
      ->type_name( "NUMBER" )
      ->capture_default_str()
      ->check( CLI::Range( 2, 3 ) );
   return [ given ]( FrameSender const & sender ) {
      auto const mac = sender.mac();
      auto const address = sender.ipv4().address;
      if ( given->version == 2 ) {
         return inParts( given->groups, 1, [ & ]( auto const & groups ) {
            return Goodbye::igmp2Leave( mac, address, groups.front() );
         } );
      }
      return inParts( given->groups, Goodbye::maxIgmp3Groups, [ & ]( auto const & groups ) {
         return Goodbye::igmp3Leave( mac, address, groups );
      } );
   };
}

FrameBuild mdnsBuild( CLI::App & app ) {
   struct Given {
      Goodbye::MdnsGoodbye goodbye;
      bool ipv6 = false;
   };
   auto const given = std::make_shared< Given >();
   addText(
      app, "--name", "NAME", "Host whose addresses are withdrawn, such as router.local",
      [ given ]( auto const & text ) { given->goodbye.host = Goodbye::parseMdnsName( text ); } );
   addTexts( app, "--address", "ADDRESS",
             "Address of the host; may be repeated (default: the sender's)",
             [ given ]( auto const & text ) {
                if ( isIpv6( text ) ) {
                   given->goodbye.addresses6.push_back( Goodbye::parseIpv6( text ) );
                } else {
                   given->goodbye.addresses.push_back( Goodbye::parseIpv4( text ) );
                }
             } );
   addTexts( app, "--pointer", "NAME=TARGET", "Service pointer to withdraw; may be repeated",
             [ given ]( auto const & text ) {
                given->goodbye.pointers.push_back( Goodbye::parseMdnsPointer( text ) );
             } );
   addIpv6( app, given->ipv6 );
   return [ given ]( FrameSender const & sender ) {
      auto const goodbye = withAddresses( given->goodbye, sender );
      return List{ overIpv6( sender, given->ipv6 )
                      ? Goodbye::mdnsGoodbye( sender.mac(), sender.linkLocal(), goodbye )
                      : Goodbye::mdnsGoodbye( sender.mac(), sender.ipv4().address, goodbye ) };
   };
}

FrameBuild ripBuild( CLI::App & app ) {
   auto const routes = std::make_shared< std::vector< Goodbye::Ipv4Prefix > >();
   addTexts(
      app, "--route", "PREFIX", "Route to withdraw, such as 192.0.2.0/24; may be repeated",
      [ routes ]( auto const & text ) { routes->push_back( Goodbye::parseIpv4Prefix( text ) ); } )
      ->required();
   return [ routes ]( FrameSender const & sender ) {
      auto const mac = sender.mac();
      auto const address = sender.ipv4().address;
      return inParts( *routes, Goodbye::maxRipRoutes, [ & ]( auto const & some ) {
         return Goodbye::ripPoison( mac, address, some );
      } );
   };
}

FrameBuild oamBuild( CLI::App & app ) {
   struct Given {
      bool passive = false;
      U16 revision = 0;
   };
   auto const given = std::make_shared< Given >();
   app.add_flag( "--passive", given->passive, "The device runs OAM in passive mode" );
   app.add_option( "--revision", given->revision, "Revision of the device's OAM configuration" )
      ->type_name( "NUMBER" )
      ->capture_default_str();
   return [ given ]( FrameSender const & sender ) {
      return List{ Goodbye::oamDyingGasp( { sender.mac(), !given->passive, given->revision } ) };
   };
}

FrameBuild lacpBuild( CLI::App & app ) {
   struct Given {
      Goodbye::LacpGoodbye goodbye;
      std::optional< Goodbye::Mac > system;
      bool passive = false;
   };
   auto const given = std::make_shared< Given >();
   auto & goodbye = given->goodbye;
   addText( app, "--system", "MAC",
            "System ID of the aggregation (default: the sender's MAC address)",
            [ given ]( auto const & text ) { given->system = Goodbye::parseMac( text ); } );
   app.add_option( "--system-priority", goodbye.systemPriority, "System priority" )
      ->type_name( "NUMBER" )
      ->capture_default_str();
   app.add_option( "--key", goodbye.key, "Key of the aggregation" )
      ->type_name( "NUMBER" )
      ->capture_default_str();
   app.add_option( "--port", goodbye.port, "Port number in the aggregation" )
      ->type_name( "NUMBER" )
      ->capture_default_str();
   app.add_option( "--port-priority", goodbye.portPriority, "Port priority" )
      ->type_name( "NUMBER" )
      ->capture_default_str();
   app.add_flag( "--passive", given->passive, "The device runs LACP in passive mode" );
   app.add_flag( "--short-timeout", goodbye.shortTimeout,
                 "The device expects a frame every second" );
   return [ given ]( FrameSender const & sender ) {
      auto said = given->goodbye;
      said.source = sender.mac();
      said.system = given->system.value_or( said.source );
      said.active = !given->passive;
      return List{ Goodbye::lacpGoodbye( said ) };
   };
}

} // namespace Valenctl
