#include "settings/ConfigReader.h"

#include "platform/corvid/NamespaceName.h"
#include "platform/trace/Trace.h"
#include "settings/FrameText.h"
#include "settings/YamlReader.h"
#include "types/L3Types.h"

#include <charconv>
#include <set>

namespace Settings {

namespace {

constexpr std::size_t maxDeviceBytes = 15; // the kernel's IFNAMSIZ, less its final zero
constexpr std::size_t maxInterfaceBytes = 255;
constexpr std::size_t maxAgentBytes = 255;
constexpr std::size_t maxSocketBytes = 107; // what a socket address holds, less its final zero

std::string quoted( std::string const & text ) {
   return "\"" + text + "\"";
}

std::string folderOf( std::string const & file ) {
   auto const slash = file.rfind( '/' );
   return slash == std::string::npos ? std::string() : file.substr( 0, slash + 1 );
}

// One reading of all files. The sections are read in the order of their references, whatever their
// order in the files.
class ConfigReader : private YamlReader {
 public:
   ConfigResult read( std::vector< ConfigText > const & texts ) {
      for ( auto const & text : texts ) {
         fileIs( text.file );
         auto const root = rootOf( text );
         if ( isGiven( root ) ) {
            readRoot( root );
         }
      }
      each( vrfs_, "vrfs", [ & ]( auto const & node ) { readVrf( node ); } );
      each( interfaces_, "interfaces", [ & ]( auto const & node ) { readInterface( node ); } );
      each( agents_, "agents", [ & ]( auto const & node ) { readAgent( node ); } );
      sources_.files = files();
      return { std::move( config_ ), sortedErrors(), std::move( sources_ ) };
   }

 private:
   // A section of one of the files.
   struct Section {
      std::string file;
      YAML::Node node;
   };
   using Sections = std::vector< Section >;

   // The file's content; nothing when it does not read or parse, which is told.
   YAML::Node rootOf( ConfigText const & text ) {
      auto const before = errorCount();
      if ( !text.trouble.empty() ) {
         error( YAML::Mark::null_mark(), text.trouble );
      }
      auto const root = document( text.text );
      isWhole_ = isWhole_ && errorCount() == before;
      return root;
   }

   void readRoot( YAML::Node const & root ) {
      auto const later = [ this ]( Sections & sections ) {
         return [ this, &sections ]( YAML::Node const & node ) {
            sections.push_back( { file(), node } );
         };
      };
      mapping( root, "the configuration",
               { setting( "shutdown-delay-ms", &ConfigReader::readDelay ),
                 { "vrfs", later( vrfs_ ) },
                 { "interfaces", later( interfaces_ ) },
                 { "agents", later( agents_ ) },
                 setting( "socket", &ConfigReader::readSocket ),
                 setting( "netns-folder", &ConfigReader::readFolder ),
                 setting( "state-directory", &ConfigReader::readStateDirectory ),
                 setting( "metrics-file", &ConfigReader::readMetricsFile ),
                 { "trace", [ & ]( auto const & node ) { readTrace( node ); } } } );
   }

   void each( Sections const & sections, char const * what, Handler const & handler ) {
      for ( auto const & [ file, node ] : sections ) {
         fileIs( file );
         sequence( node, what, handler );
      }
   }

   // A key whose value stands in one of the files alone; `prefix` goes before its name elsewhere.
   Key setting( char const * name, void ( ConfigReader::*reader )( YAML::Node const & node ),
                char const * prefix = "" ) {
      return { name, [ this, name, reader, prefix ]( YAML::Node const & node ) {
                 auto const fullName = std::string( prefix ) + name;
                 auto const [ first, added ] =
                    sources_.settings.emplace( fullName, placeOf( node ) );
                 if ( !added ) {
                    again( node, fullName, first->second );
                 } else if ( node.IsScalar() || node.IsNull() ) {
                    ( this->*reader )( node );
                 } else {
                    scalar( node, fullName ); // tells it
                 }
              } };
   }

   // `what` stands at `node`, and stood at `first` before.
   void again( YAML::Node const & node, std::string const & what, Place const & first ) {
      error( node, what + " again, after " + first.text() + "; expected it once" );
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
      readPath( node, "netns-folder", config_.process.netNsFolder );
   }
   void readStateDirectory( YAML::Node const & node ) {
      readPath( node, "state-directory", config_.process.stateDirectory );
   }
   void readMetricsFile( YAML::Node const & node ) {
      readPath( node, "metrics-file", config_.process.metricsFile );
   }

   void readPath( YAML::Node const & node, char const * key,
                  std::optional< std::string > & setting ) {
      auto const path = scalar( node, key );
      if ( !path.starts_with( '/' ) ) {
         return error( node, std::string( key ) + " is " + quoted( path ) +
                                "; expected an absolute path" );
      }
      setting = path;
   }

   void readTrace( YAML::Node const & node ) {
      mapping( node, "trace",
               { setting( "levels", &ConfigReader::readLevels, "trace." ),
                 setting( "file", &ConfigReader::readTraceFile, "trace." ),
                 setting( "ring", &ConfigReader::readTraceRing, "trace." ) } );
   }

   void readTraceFile( YAML::Node const & node ) {
      config_.process.traceFile = scalar( node, "file" );
   }

   void readTraceRing( YAML::Node const & node ) {
      config_.process.traceRing = scalar( node, "ring" );
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
      auto const [ first, added ] = sources_.vrfs.emplace( *vrf, placeOf( name ) );
      if ( !added ) {
         return again( name, "VRF " + quoted( *vrf ), first->second );
      }
      config_.vrfs.emplace( *vrf, space.value_or( "" ) );
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
                         "'s already, at " + sources_.vrfs.at( user->second ).text() +
                         "; expected one of its own for each VRF" );
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
      auto const [ first, added ] = sources_.interfaces.emplace( interface.name, placeOf( name ) );
      if ( !added ) {
         return again( name, "interface " + quoted( interface.name ), first->second );
      }
      config_.interfaces.emplace( interface.name, interface );
      checkVrf( vrf, interface );
      checkDevice( isGiven( device ) ? device : name, interface );
   }

   void checkVrf( YAML::Node const & node, InterfaceConfig const & interface ) {
      if ( isWhole_ && interface.vrf != defaultVrf && !config_.vrfs.contains( interface.vrf ) ) {
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
                         " is interface " + quoted( user->second ) + "'s already, at " +
                         sources_.interfaces.at( user->second ).text() +
                         "; expected one of its own for each interface" );
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
      auto const [ first, added ] = agentsOfFile_.emplace( std::pair( file(), *agent ), name );
      if ( !added ) {
         return again( name, "agent " + quoted( *agent ), placeOf( first->second ) );
      }
      sources_.agents.emplace( *agent, placeOf( name ) );
      config_.agents.try_emplace( *agent );
      if ( isGiven( messages ) ) {
         keyed( messages, "messages", [ & ]( auto const & interface, auto const & frames ) {
            readMessages( *agent, interface, frames );
         } );
      }
   }

   void readMessages( std::string const & agent, YAML::Node const & key, YAML::Node const & node ) {
      auto const interface = scalar( key, "messages" );
      if ( isWhole_ && !config_.interfaces.contains( interface ) ) {
         error( key,
                "unknown interface " + quoted( interface ) + "; expected one of \"interfaces\"" );
      }
      auto const [ first, added ] = sources_.messages[ agent ].emplace( interface, placeOf( key ) );
      if ( !added ) {
         return again( key, "interface " + quoted( interface ) + " of agent " + quoted( agent ),
                       first->second );
      }
      if ( !node.IsSequence() || node.size() == 0 ) {
         return error( node.IsNull() ? key : node, "no frames for interface " +
                                                      quoted( interface ) +
                                                      "; expected a list of one or more" );
      }
      auto & frames = config_.agents[ agent ][ interface ];
      sequence( node, interface, [ & ]( auto const & frame ) { readFrame( frame, frames ); } );
   }

   void readFrame( YAML::Node const & node, Frames & frames ) {
      if ( !node.IsScalar() ) {
         return error( node, "a frame that is no text; expected hexadecimal digits, \"base64:\", "
                             "\"pcap:\" or \"pcapng:\"" );
      }
      try {
         for ( auto & frame : framesOf( node.Scalar(), folderOf( file() ) ) ) {
            frames.push_back( std::move( frame ) );
         }
      } catch ( FrameError const & e ) {
         error( node, e.what() );
      }
   }

   Sections vrfs_;
   Sections interfaces_;
   Sections agents_;
   Config config_;
   std::map< std::string, std::string > vrfOfNamespace_;
   std::map< std::pair< std::string, std::string >, std::string > interfaceOfDevice_; // in a VRF
   std::map< std::pair< std::string, std::string >, YAML::Node > agentsOfFile_; // by file and name
   Sources sources_;
   bool isWhole_ = true; // every file so far was read and parsed
};

} // namespace

ConfigResult parseConfig( std::vector< ConfigText > const & texts ) {
   return ConfigReader().read( texts );
}

ConfigResult parseConfig( std::string const & text, std::string const & file ) {
   return parseConfig( { { file, text } } );
}

} // namespace Settings
