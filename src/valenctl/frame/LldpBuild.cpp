// The LLDP shutdown. Neighbors drop a port only if the frame has the ids that they know it by, so those
// come from lldpd when it runs.
#include "valenctl/frame/FrameBuilds.h"
#include "valenctl/frame/FrameOptions.h"
#include "valenctl/frame/Lldpd.h"

#include <memory>

namespace Valenctl {

namespace {

struct Given {
   Goodbye::LldpShutdown shutdown;
   std::optional< Goodbye::LldpId > chassis;
   std::optional< Goodbye::LldpId > port;
   std::string socket; // lldpd's; empty: the usual
};

// The ids that lldpd sends on the sender's device. Throws NoLldpd.
LldpIds askedIds( Given const & given, FrameSender const & sender ) {
   auto const & netNs = sender.options().netNs;
   if ( given.socket.empty() && !netNs.empty() ) { // it has the devices of its own namespace
      throw NoLldpd( "an lldpd in network namespace " + netNs +
                     " is asked only with --lldpd-socket" );
   }
   return lldpdIds( sender.device(), given.socket );
}

// The ids of an LLDP agent that uses the device's own.
LldpIds deviceIds( FrameSender const & sender ) {
   return { Goodbye::parseLldpChassis( "mac:" + sender.mac().to_string() ),
            Goodbye::parseLldpPort( "name:" + sender.device() ) };
}

// What is taken from the device since lldpd could not be asked.
std::string noteOn( Given const & given, std::string const & why ) {
   constexpr auto chassis = "the sender's MAC address as chassis ID";
   constexpr auto port = "the device's name as port ID";
   std::string taken = given.chassis ? port : chassis;
   if ( !given.chassis && !given.port ) {
      taken += std::string( " and " ) + port;
   }
   return why + "; using " + taken +
          ". The neighbor forgets the port only if these are what the LLDP agent sends: see "
          "--chassis-id and --port-id";
}

BuiltFrames build( Given const & given, FrameSender const & sender ) {
   auto shutdown = given.shutdown;
   shutdown.source = sender.mac();
   if ( sender.device().empty() ) {
      if ( !given.port ) {
         throw UsageError( "the frame needs the port's ID: give --port-id, or --device" );
      }
      shutdown.chassis = given.chassis.value_or(
         Goodbye::parseLldpChassis( "mac:" + shutdown.source.to_string() ) );
      shutdown.port = *given.port;
      return std::vector{ Goodbye::lldpShutdown( shutdown ) };
   }
   LldpIds ids;
   std::vector< std::string > notes;
   if ( !given.chassis || !given.port ) {
      try {
         ids = askedIds( given, sender );
      } catch ( NoLldpd const & e ) {
         if ( !given.socket.empty() ) {
            throw; // it was meant to be asked
         }
         ids = deviceIds( sender );
         notes.push_back( noteOn( given, e.what() ) );
      }
   }
   shutdown.chassis = given.chassis.value_or( ids.chassis );
   shutdown.port = given.port.value_or( ids.port );
   return { { Goodbye::lldpShutdown( shutdown ) }, notes };
}

} // namespace

FrameBuild lldpBuild( CLI::App & app ) {
   auto const given = std::make_shared< Given >();
   addText(
      app, "--chassis-id", "ID",
      "Chassis ID as the LLDP agent sends it: mac:MAC, name:TEXT or local:TEXT (default: "
      "lldpd's, else the sender's MAC address)",
      [ given ]( auto const & text ) { given->chassis = Goodbye::parseLldpChassis( text ); } );
   addText( app, "--port-id", "ID",
            "Port ID as the LLDP agent sends it, in the same form (default: lldpd's, else the "
            "device's name)",
            [ given ]( auto const & text ) { given->port = Goodbye::parseLldpPort( text ); } );
   app.add_option( "--lldpd-socket", given->socket,
                   "Socket of the lldpd that sends on the device (default: lldpcli's)" )
      ->type_name( "FILE" );
   auto & destination = given->shutdown.destination;
   addText( app, "--destination", "MAC",
            "Destination (default: nearest bridge, " + destination.to_string() + ")",
            [ &destination ]( auto const & text ) { destination = Goodbye::parseMac( text ); } );
   return [ given ]( FrameSender const & sender ) { return build( *given, sender ); };
}

} // namespace Valenctl
