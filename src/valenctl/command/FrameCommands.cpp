// frame: builds the goodbye frames of other protocols, and prints, writes or queues them. Each kind
// is a command of its own, from the table of kinds. frame decode: says what frames say.
#include "goodbye/Pcap.h"
#include "settings/FrameFile.h"
#include "settings/FrameText.h"
#include "settings/Hex.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/FrameDecoding.h"
#include "valenctl/command/MessageCommands.h"
#include "valenctl/command/Session.h"
#include "valenctl/frame/FrameKinds.h"
#include "valenctl/frame/FrameOptions.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace Valenctl {

namespace {

using Frames = std::vector< Goodbye::Frame >;
using Source = FrameKind::Source;

std::vector< std::string > hexOf( Frames const & frames ) {
   std::vector< std::string > texts;
   for ( auto const & frame : frames ) {
      texts.push_back( Settings::toHex( frame ) );
   }
   return texts;
}

// A YAML document that can be a configuration or part of one: the frames for `interface`.
std::string yamlText( FrameKind const & kind, std::string const & interface,
                      Frames const & frames ) {
   auto text = "agents:\n  - name: " + std::string( kind.name ) + "\n    messages:\n      " +
               oneLine( Json( interface ) ) + // JSON strings are YAML's double-quoted strings
               ":\n        # " + kind.goodbye + " (" + kind.clause + ")\n";
   for ( auto const & frame : hexOf( frames ) ) {
      text += "        - \"" + frame + "\"\n";
   }
   return text;
}

// Reads --ip as an address that frames of this source can have.
void readIp( std::string const & text, Source source, DeviceAddresses & given ) {
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

char const * ipHelp( Source source ) {
   switch ( source ) {
   case Source::ipv4:
      return "The sender's IPv4 address, with its prefix length where that matters";
   case Source::ipv6:
      return "The sender's link-local IPv6 address";
   default:
      return "The sender's IPv4 or link-local IPv6 address";
   }
}

void write( std::ostream & stream, std::string const & name, std::string const & text ) {
   stream << text << std::flush;
   if ( !stream ) {
      throw std::runtime_error( "cannot write " + name + ": " + std::strerror( errno ) );
   }
}

class FrameCommand final : public Command {
 public:
   explicit FrameCommand( FrameKind const & kind ) : kind_( kind ) {}

   void addOptions( CLI::App & app ) override {
      app.footer( std::string( "Specified in " ) + kind_.clause + ".\n\n" + kind_.effect );
      addSender( app );
      build_ = kind_.build( app );
      addDestination( app );
   }

   Exit run( Session & session ) override {
      auto const built = build_( FrameSender( sender_ ) );
      for ( auto const & note : built.notes ) {
         session.err() << "valenctl: " << note << '\n';
      }
      auto const & frames = built.frames;
      if ( !queueInterface_.empty() ) {
         auto const agent = agent_.empty() ? kind_.name : agent_;
         return publish( session, { agent, queueInterface_, hexOf( frames ) }, Lifetime::kept );
      }
      if ( !pcap_.empty() && pcap_ != "-" ) {
         errno = 0;
         std::ofstream file( pcap_, std::ios::binary );
         write( file, pcap_, text( frames ) );
      } else {
         write( session.out(), "standard output",
                session.json() && pcap_.empty() && yamlInterface_.empty() ? json( built )
                                                                          : text( frames ) );
      }
      return Exit::done;
   }

 private:
   void addSender( CLI::App & app ) {
      auto * const device =
         app.add_option( "--device", sender_.device, "Take addresses that are not given from it" )
            ->type_name( "DEV" );
      app.add_option( "--netns", sender_.netNs, "The device's network namespace, a name or a path" )
         ->type_name( "NETNS" )
         ->needs( device );
      addText( app, "--mac", "MAC", "The sender's MAC address",
               [ this ]( auto const & mac ) { sender_.given.mac = Goodbye::parseMac( mac ); } );
      if ( kind_.source != Source::mac ) {
         addText( app, "--ip", "ADDRESS", ipHelp( kind_.source ),
                  [ this ]( auto const & ip ) { readIp( ip, kind_.source, sender_.given ); } );
      }
   }

   void addDestination( CLI::App & app ) {
      auto * const pcap =
         app.add_option( "--pcap", pcap_, "Write a capture file instead; - is standard output" )
            ->type_name( "FILE" );
      auto * const yaml =
         app.add_option( "--yaml", yamlInterface_, "Print configuration for this interface" )
            ->type_name( "INTERFACE" )
            ->excludes( pcap );
      auto * const queue =
         app.add_option( "--queue", queueInterface_, "Queue the frames for this interface" )
            ->type_name( "INTERFACE" )
            ->excludes( pcap )
            ->excludes( yaml );
      app.add_option( "--agent", agent_,
                      std::string( "Queue them under this name [" ) + kind_.name + "]" )
         ->type_name( "NAME" )
         ->needs( queue );
   }

   // What is printed or written.
   std::string text( Frames const & frames ) const {
      if ( !pcap_.empty() ) {
         return Goodbye::pcapFile( frames, std::chrono::system_clock::now() );
      }
      if ( !yamlInterface_.empty() ) {
         return yamlText( kind_, yamlInterface_, frames );
      }
      std::string lines;
      for ( auto const & frame : hexOf( frames ) ) {
         lines += frame + "\n";
      }
      return lines;
   }

   std::string json( BuiltFrames const & built ) const {
      return indented( { { "kind", kind_.name },
                         { "frames", hexOf( built.frames ) },
                         { "notes", built.notes } } ) +
             "\n";
   }

   FrameKind const & kind_;
   FrameBuild build_;
   SenderOptions sender_;
   std::string pcap_;           // file to write; "-": standard output
   std::string yamlInterface_;  // interface to print configuration for
   std::string queueInterface_; // interface to queue the frames for
   std::string agent_;          // name to queue them under; empty: the kind's
};

class FrameDecode final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "FRAME", texts_,
                      "Complete frames as in the configuration: hexadecimal, base64:..., or "
                      "pcap:FILE#1,3-5; - reads them from standard input, one a line" )
         ->type_name( "" );
      app.add_option( "--pcap", pcap_, "Decode all frames of this capture file" )
         ->type_name( "FILE" );
   }

   Exit run( Session & session ) override {
      Settings::FrameList frames;
      for ( auto const & text : texts_ ) {
         if ( text != "-" ) {
            add( frames, text );
            continue;
         }
         for ( std::string line; std::getline( std::cin, line ); ) {
            if ( !line.empty() ) {
               add( frames, line );
            }
         }
      }
      if ( !pcap_.empty() ) {
         auto const captured = Settings::allFramesOf( pcap_ );
         frames.insert( frames.end(), captured.begin(), captured.end() );
      }
      if ( texts_.empty() && pcap_.empty() ) {
         throw UsageError( "no frame given: give FRAME or --pcap" );
      }
      return printDecoded( session, frames );
   }

 private:
   static void add( Settings::FrameList & frames, std::string const & text ) {
      auto const more = Settings::framesOf( text, "" );
      frames.insert( frames.end(), more.begin(), more.end() );
   }

   std::vector< std::string > texts_;
   std::string pcap_;
};

} // namespace

std::vector< CommandRow > frameCommands() {
   std::vector< CommandRow > rows{
      { "frame",
        "Build goodbye frames, and print them in hexadecimal, one a line; decode frames",
        {},
        "valenctl frame KIND --help explains a kind: its options, the standard that specifies\n"
        "it, and what a peer does that receives it. Only --queue needs valend." } };
   for ( auto const & kind : frameKinds() ) {
      rows.push_back( { std::string( "frame " ) + kind.name, kind.goodbye,
                        [ &kind ] { return std::make_unique< FrameCommand >( kind ); } } );
   }
   rows.push_back(
      { "frame decode", "Show what frames say, and whether they are goodbyes", make< FrameDecode >,
        "Knows the protocols whose goodbyes valend learns. The exit status is 1 if a frame is\n"
        "malformed. Does not need valend." } );
   return rows;
}

} // namespace Valenctl
