#include "config/ConfigReader.h"

#include "config/Hex.h"
#include "config/YamlReader.h"
#include "platform/corvid/NamespaceName.h"
#include "platform/trace/Trace.h"
#include "types/L3Types.h"

#include <charconv>
#include <fstream>
#include <iostream>
#include <iterator>

namespace ValenConfig {

namespace {

constexpr std::size_t maxDeviceBytes = 15; // the kernel's IFNAMSIZ, less its final zero
constexpr std::size_t maxInterfaceBytes = 255;
constexpr std::size_t maxAgentBytes = 255;
constexpr std::size_t maxSocketBytes = 107; // what a socket address holds, less its final zero

std::string quoted( std::string const & text ) {
   return "\"" + text + "\"";
}

// One reading of one file. The sections are read in the order of their references, whatever their
// order in the file.
class ConfigReader : private YamlReader {
 public:
   explicit ConfigReader( std::string const & file ) : YamlReader( file ) {}

   ConfigResult read( std::string const & text ) {
      auto const root = document( text );
      if ( root && !root.IsNull() ) {
         readRoot( root );
      }
      return { std::move( config_ ), sortedErrors() };
   }

 private:
   void readRoot( YAML::Node const & root ) {
      YAML::Node vrfs, interfaces, agents;
      mapping( root, "the configuration",
               { { "shutdown-delay-ms", [ & ]( auto const & node ) { readDelay( node ); } },
                 { "vrfs", [ & ]( auto const & node ) { vrfs.reset( node ); } },
                 { "interfaces", [ & ]( auto const & node ) { interfaces.reset( node ); } },
                 { "agents", [ & ]( auto const & node ) { agents.reset( node ); } },
                 { "socket", [ & ]( auto const & node ) { readSocket( node ); } },
                 { "netns-folder", [ & ]( auto const & node ) { readFolder( node ); } },
                 { "trace", [ & ]( auto const & node ) { readTrace( node ); } } } );
      sequence( vrfs, "vrfs", [ & ]( auto const & node ) { readVrf( node ); } );
      sequence( interfaces, "interfaces", [ & ]( auto const & node ) { readInterface( node ); } );
      sequence( agents, "agents", [ & ]( auto const & node ) { readAgent( node ); } );
   }

   void readDelay( YAML::Node const & node ) {
      auto const text = scalar( node, "shutdown-delay-ms" );
      U32 value = 0;
      auto const [ end, code ] = std::from_chars( text.data(), text.data() + text.size(), value );
      if ( text.empty() || code != std::errc() || end != text.data() + text.size() ||
           value > 65535 ) {
         return error( node, "shutdown-delay-ms is " + quoted( text ) +
                                "; expected milliseconds from 0 to 65535" );
      }
      config_.shutdownDelayMs = static_cast< U16 >( value );
   }

   void readSocket( YAML::Node const & node ) {
      auto const path = scalar( node, "socket" );
      if ( path.empty() || path.size() > maxSocketBytes ) {
         return error( node, "socket of " + std::to_string( path.size() ) +
                                " bytes; expected a path of 1 to " +
                                std::to_string( maxSocketBytes ) + " bytes" );
      }
      config_.process.socket = path;
   }

   void readFolder( YAML::Node const & node ) {
      auto const path = scalar( node, "netns-folder" );
      if ( !path.starts_with( '/' ) ) {
         return error( node, "netns-folder is " + quoted( path ) + "; expected an absolute path" );
      }
      config_.process.netNsFolder = path;
   }

   void readTrace( YAML::Node const & node ) {
      auto & process = config_.process;
      mapping(
         node, "trace",
         { { "levels", [ & ]( auto const & levels ) { readLevels( levels ); } },
           { "file", [ & ]( auto const & file ) { process.traceFile = scalar( file, "file" ); } },
           { "ring",
             [ & ]( auto const & ring ) { process.traceRing = scalar( ring, "ring" ); } } } );
   }

   void readLevels( YAML::Node const & node ) {
      auto const levels = scalar( node, "levels" );
      auto const inForce = Quill::traceLevels();
      try { // setting them is how they are checked
         Quill::traceLevelsIs( levels );
         Quill::traceLevelsIs( inForce );
         config_.process.traceLevels = levels;
      } catch ( Quill::RangeException const & e ) {
         error( node, e.text() );
      }
   }

   void readVrf( YAML::Node const & node ) {
      YAML::Node name, netNs;
      mapping( node, "a VRF",
               { { "name", [ & ]( auto const & value ) { name.reset( value ); } },
                 { "namespace", [ & ]( auto const & value ) { netNs.reset( value ); } } } );
      auto const vrf = requiredName( node, name, "VRF", L3::VrfName::maxLength );
      auto const space = requiredName( node, netNs, "namespace", Corvid::NamespaceName::maxLength );
      if ( !vrf ) {
         return;
      }
      if ( *vrf == defaultVrf ) {
         return error( name, "VRF \"default\" is the agent's own namespace and has no entry; "
                             "expected another name" );
      }
      if ( !config_.vrfs.emplace( *vrf, space.value_or( "" ) ).second ) {
         return error( name, "VRF " + quoted( *vrf ) + " again; expected each name once" );
      }
      if ( space ) {
         checkNamespace( netNs, *vrf, *space );
      }
   }

   void checkNamespace( YAML::Node const & node, std::string const & vrf,
                        std::string const & space ) {
      if ( space == Corvid::NamespaceName::defaultNamespace().view() ) {
         return error( node, "namespace \"default\" stands for the agent's own, which is VRF "
                             "\"default\"; expected another" );
      }
      if ( space.find( '/' ) != std::string::npos || space == "." || space == ".." ) {
         return error( node, "namespace " + quoted( space ) +
                                "; expected a name as in \"ip netns add NAME\"" );
      }
      auto const [ user, added ] = vrfOfNamespace_.emplace( space, vrf );
      if ( !added ) {
         error( node, "namespace " + quoted( space ) + " is VRF " + quoted( user->second ) +
                         "'s already; expected one of its own for each VRF" );
      }
   }

   void readInterface( YAML::Node const & node ) {
      YAML::Node name, device, vrf;
      InterfaceConfig interface;
      mapping( node, "an interface",
               { { "name", [ & ]( auto const & value ) { name.reset( value ); } },
                 { "device", [ & ]( auto const & value ) { device.reset( value ); } },
                 { "vrf", [ & ]( auto const & value ) { vrf.reset( value ); } },
                 { "shutdown-delay", [ & ]( auto const & value ) {
                     interface.shutdownDelay = truth( value, "shutdown-delay" );
                  } } } );
      auto const ownName = requiredName( node, name, "interface", maxInterfaceBytes );
      if ( !ownName ) {
         return;
      }
      interface.name = *ownName;
      interface.device = isGiven( device ) ? scalar( device, "device" ) : interface.name;
      interface.vrf = isGiven( vrf ) ? scalar( vrf, "vrf" ) : defaultVrf;
      if ( !config_.interfaces.emplace( interface.name, interface ).second ) {
         return error( name, "interface " + quoted( interface.name ) +
                                " again; expected each name once" );
      }
      checkVrf( vrf, interface );
      checkDevice( isGiven( device ) ? device : name, interface );
   }

   void checkVrf( YAML::Node const & node, InterfaceConfig const & interface ) {
      if ( interface.vrf != defaultVrf && !config_.vrfs.contains( interface.vrf ) ) {
         error( node, "unknown VRF " + quoted( interface.vrf ) +
                         "; expected \"default\" or one of \"vrfs\"" );
      }
   }

   void checkDevice( YAML::Node const & node, InterfaceConfig const & interface ) {
      auto const & device = interface.device;
      bool const fits = !device.empty() && device.size() <= maxDeviceBytes && device != "." &&
                        device != ".." &&
                        device.find_first_of( "/: \t\n\v\f\r" ) == std::string::npos;
      if ( !fits ) {
         return error( node, "device " + quoted( device ) + " of interface " +
                                quoted( interface.name ) + "; expected a device name of 1 to " +
                                std::to_string( maxDeviceBytes ) +
                                " bytes without blanks, \"/\" and \":\"" );
      }
      auto const [ user, added ] =
         interfaceOfDevice_.emplace( std::pair( interface.vrf, device ), interface.name );
      if ( !added ) {
         error( node, "device " + quoted( device ) + " in VRF " + quoted( interface.vrf ) +
                         " is interface " + quoted( user->second ) +
                         "'s already; expected one of its own for each interface" );
      }
   }

   void readAgent( YAML::Node const & node ) {
      YAML::Node name, messages;
      mapping( node, "an agent",
               { { "name", [ & ]( auto const & value ) { name.reset( value ); } },
                 { "messages", [ & ]( auto const & value ) { messages.reset( value ); } } } );
      auto const agent = requiredName( node, name, "agent", maxAgentBytes );
      if ( !agent ) {
         return;
      }
      auto const [ place, added ] = config_.agents.try_emplace( *agent );
      if ( !added ) {
         return error( name, "agent " + quoted( *agent ) + " again; expected each name once" );
      }
      if ( isGiven( messages ) ) {
         keyed( messages, "messages", [ & ]( auto const & interface, auto const & frames ) {
            readMessages( interface, frames, place->second );
         } );
      }
   }

   void readMessages( YAML::Node const & key, YAML::Node const & node,
                      std::map< std::string, Frames > & messages ) {
      auto const interface = scalar( key, "messages" );
      if ( !config_.interfaces.contains( interface ) ) {
         error( key,
                "unknown interface " + quoted( interface ) + "; expected one of \"interfaces\"" );
      }
      if ( !node.IsSequence() || node.size() == 0 ) {
         return error( node.IsNull() ? key : node,
                       "no frames for interface " + quoted( interface ) +
                          "; expected a list of one or more, in hexadecimal" );
      }
      auto & frames = messages[ interface ];
      sequence( node, interface, [ & ]( auto const & frame ) { readFrame( frame, frames ); } );
   }

   void readFrame( YAML::Node const & node, Frames & frames ) {
      if ( !node.IsScalar() ) {
         return error( node, "a frame that is no text; expected hexadecimal digits" );
      }
      try {
         frames.push_back( frameFromHex( node.Scalar() ) );
      } catch ( HexError const & e ) {
         error( node, e.what() );
      }
   }

   Config config_;
   std::map< std::string, std::string > vrfOfNamespace_;
   std::map< std::pair< std::string, std::string >, std::string > interfaceOfDevice_; // in a VRF
};

ConfigResult refused( std::string const & file, std::string text ) {
   return { Config(), { { file, 0, 0, std::move( text ) } } };
}

} // namespace

std::string ConfigError::message() const {
   auto const place = line ? ":" + std::to_string( line ) + ":" + std::to_string( column ) : "";
   std::string message = file + place + ": ";
   for ( auto const character : text ) { // what is quoted from the file may hold anything
      message += static_cast< unsigned char >( character ) < 0x20 ? ' ' : character;
   }
   return message;
}

ConfigResult readConfig( std::string const & file ) {
   std::ifstream disk;
   if ( file != "-" ) {
      disk.open( file, std::ios::binary );
   }
   auto & stream = file == "-" ? std::cin : disk;
   if ( !stream ) {
      return refused( file, "cannot be opened; expected a readable file" );
   }
   std::string text( maxConfigBytes + 1, '\0' );
   stream.read( text.data(), static_cast< std::streamsize >( text.size() ) );
   if ( stream.bad() || ( stream.gcount() == 0 && !stream.eof() ) ) {
      return refused( file, "cannot be read; expected a readable file" );
   }
   text.resize( static_cast< std::size_t >( stream.gcount() ) );
   if ( text.size() > maxConfigBytes ) {
      return refused( file, "larger than " + std::to_string( maxConfigBytes ) +
                               " bytes; expected at most that" );
   }
   return parseConfig( text, file );
}

ConfigResult parseConfig( std::string const & text, std::string const & file ) {
   return ConfigReader( file ).read( text );
}

} // namespace ValenConfig
