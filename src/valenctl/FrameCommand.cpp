#include "valenctl/FrameCommand.h"

#include "goodbye/Pcap.h"
#include "settings/Hex.h"
#include "valenctl/FrameKinds.h"
#include "valenctl/FrameOptions.h"
#include "valenctl/Options.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace Valenctl {

namespace {

using Source = FrameKind::Source;

// A document that the agent's configuration may consist of or be extended by.
std::string yaml( FrameOptions const & options, std::vector< Goodbye::Frame > const & frames ) {
   using Json = nlohmann::json; // whose strings are YAML's double-quoted ones
   auto const interface =
      Json( options.yamlInterface ).dump( -1, ' ', false, Json::error_handler_t::replace );
   auto text = "agents:\n  - name: " + std::string( options.kind->name ) +
               "\n    messages:\n      " + interface + ":\n        # " + options.kind->goodbye +
               " (" + options.kind->clause + ")\n";
   for ( auto const & frame : frames ) {
      text += "        - \"" + Settings::toHex( frame ) + "\"\n";
   }
   return text;
}

// Reads --ip as the kind can use it.
void takeIp( std::string const & text, Source source, DeviceAddresses & given ) {
   bool const ipv6 = source == Source::ipv6 ||
                     ( source == Source::either && text.find( ':' ) != std::string::npos );
   if ( !ipv6 ) {
      given.ipv4 = Goodbye::parseIpv4Prefix( text );
      return;
   }
   given.linkLocal = Goodbye::parseIpv6( text );
   if ( !Goodbye::isLinkLocal( *given.linkLocal ) ) {
      throw Goodbye::BadText( "\"" + text + "\" is not link-local; expected one in fe80::/10" );
   }
}

void addSender( CLI::App & app, FrameKind const & kind, SenderOptions & sender ) {
   auto * const device = app.add_option( "--device", sender.device,
                                         "Take the addresses that are not given from this one" )
                            ->type_name( "DEVICE" );
   app.add_option( "--netns", sender.netNs, "The device's network namespace, a name or a path" )
      ->type_name( "NAME" )
      ->needs( device );
   addText( app, "--mac", "MAC", "The sender's MAC address",
            [ &sender ]( auto const & text ) { sender.given.mac = Goodbye::parseMac( text ); } );
   if ( kind.source != Source::mac ) {
      auto const help = kind.source == Source::ipv4   ? "The sender's IPv4 address, with its "
                                                        "prefix length where that matters"
                        : kind.source == Source::ipv6 ? "The sender's link-local IPv6 address"
                                                      : "The sender's IPv4 or link-local IPv6 "
                                                        "address";
      addText( app, "--ip", "ADDRESS", help, [ &sender, &kind ]( auto const & text ) {
         takeIp( text, kind.source, sender.given );
      } );
   }
}

void addKind( CLI::App & frame, FrameKind const & kind, FrameOptions & options ) {
   auto * const app = frame.add_subcommand( kind.name, kind.goodbye );
   app->footer( std::string( "Laid down in " ) + kind.clause + ".\n\n" + kind.effect );
   addSender( *app, kind, options.sender );
   auto const build = kind.build( *app );
   auto * const pcap = app->add_option( "--pcap", options.pcap, "Write a capture file instead" )
                          ->type_name( "FILE" );
   auto * const yaml =
      app->add_option( "--yaml", options.yamlInterface, "Print configuration for this interface" )
         ->type_name( "INTERFACE" )
         ->excludes( pcap );
   auto * const queue = app->add_option( "--queue", options.queueInterface,
                                         "Have the agent send the frames before this interface "
                                         "goes down, until it is told otherwise" )
                           ->type_name( "INTERFACE" )
                           ->excludes( pcap )
                           ->excludes( yaml );
   app->add_option( "--agent", options.agent, "Queue them under this name [the kind's]" )
      ->type_name( "NAME" )
      ->needs( queue );
   app->callback( [ &options, &kind, build ] {
      options.kind = &kind;
      options.build = build;
   } );
   app->fallthrough();
}

Exit writePcap( std::string const & path, std::string const & content, std::ostream & err ) {
   std::ofstream file( path, std::ios::binary );
   file << content;
   file.close();
   if ( !file ) {
      err << "valenctl: " << path << " cannot be written\n";
      return Exit::refused;
   }
   return Exit::done;
}

Exit write( FrameOptions const & options, std::vector< Goodbye::Frame > const & frames,
            std::ostream & out, std::ostream & err ) {
   std::string text;
   if ( !options.pcap.empty() ) {
      text = Goodbye::pcapFile( frames, std::chrono::system_clock::now() );
      if ( options.pcap != "-" ) {
         return writePcap( options.pcap, text, err );
      }
   } else if ( !options.yamlInterface.empty() ) {
      text = yaml( options, frames );
   } else {
      for ( auto const & frame : hexOf( frames ) ) {
         text += frame + "\n";
      }
   }
   out << text << std::flush;
   if ( !out ) {
      err << "valenctl: standard output cannot be written\n";
      return Exit::refused;
   }
   return Exit::done;
}

} // namespace

CLI::App * addFrame( CLI::App & parent, FrameOptions & options ) {
   auto * const frame = parent.add_subcommand(
      "frame", "Build goodbye frames, and print them in hexadecimal, one a line" );
   frame->require_subcommand( 1 );
   frame->footer(
      "valenctl frame KIND --help explains a kind: its options, where it is laid "
      "down, and\nwhat a peer does that receives it. No agent is needed, but for --queue." );
   frame->fallthrough();
   for ( auto const & kind : frameKinds() ) {
      addKind( *frame, kind, options );
   }
   return frame;
}

std::vector< std::string > hexOf( std::vector< Goodbye::Frame > const & frames ) {
   std::vector< std::string > texts;
   for ( auto const & frame : frames ) {
      texts.push_back( Settings::toHex( frame ) );
   }
   return texts;
}

std::string FrameOptions::queueAgent() const {
   return agent.empty() ? kind->name : agent;
}

Exit useFrames( FrameOptions const & options, FrameUse const & use, std::ostream & err ) {
   try {
      return use( options.build( FrameSender( options.sender ) ) );
   } catch ( UsageError const & e ) {
      err << "valenctl: " << e.what() << '\n';
      return Exit::usage;
   } catch ( std::exception const & e ) {
      err << "valenctl: " << e.what() << '\n';
      return Exit::refused;
   }
}

Exit runFrame( FrameOptions const & options, std::ostream & out, std::ostream & err ) {
   return useFrames(
      options, [ & ]( auto const & frames ) { return write( options, frames, out, err ); }, err );
}

} // namespace Valenctl
