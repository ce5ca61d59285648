#include "settings/ConfigReader.h"

#include "platform/quill/Printable.h"
#include "settings/Counted.h"
#include "settings/FrameCheck.h"
#include "settings/FrameText.h"
#include "settings/ItemReader.h"
#include "settings/Limits.h"

#include <algorithm>
#include <set>

namespace Settings {

namespace {

constexpr std::size_t maxAgentBytes = 255;

std::string directoryOf( std::string const & file ) {
   auto const slash = file.rfind( '/' );
   return slash == std::string::npos ? std::string() : file.substr( 0, slash + 1 );
}

// Reads all files once. A section is read after those that it refers to, whatever their order in the
// files.
class ConfigReader : private ItemReader {
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
      return { std::move( config_ ), listedErrors(), std::move( sources_ ), listedDoubts() };
   }

 private:
   // A section of one of the files.
   struct Section {
      std::string file;
      YAML::Node node;
   };
   using Sections = std::vector< Section >;

   // The file's content; an undefined node, and an error, when it could not be read or parsed.
   YAML::Node rootOf( ConfigText const & text ) {
      auto const before = errorCount();
      if ( !text.error.empty() ) {
         error( YAML::Mark::null_mark(), text.error );
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
      std::vector< Key > keys{ once( "shutdown-delay-ms", "shutdown-delay-ms",
                                     [ this ]( auto const & node, auto const & value ) {
                                        config_.shutdownDelayMs = delayAt( node, value );
                                     } ),
                               unique( "goodbyes", "goodbyes",
                                       [ this ]( auto const & node ) {
                                          config_.goodbyes =
                                             goodbyesAt( node ).value_or( Goodbyes() );
                                       } ),
                               { "vrfs", later( vrfs_ ) },
                               { "interfaces", later( interfaces_ ) },
                               { "agents", later( agents_ ) } };
      auto const process = processKeys();
      keys.insert( keys.end(), process.begin(), process.end() );
      mapping( root, "the configuration", keys );
   }

   // The keys of all settings of the process: "socket", and "trace" for "trace.file" and its like.
   std::vector< Key > processKeys() {
      std::vector< Key > keys;
      std::map< std::string, std::vector< Key > > groups;
      for ( auto const & setting : processSettings ) {
         if ( !setting.inFiles() ) {
            continue;
         }
         std::string const name( setting.name );
         auto const read = [ this, &setting ]( auto const & node, auto const & value ) {
            readProcessSetting( setting, node, value );
         };
         auto const dot = name.find( '.' );
         if ( dot == name.npos ) {
            keys.push_back( once( name, name, read ) );
            continue;
         }
         auto const group = name.substr( 0, dot );
         groups[ group ].push_back( once( name.substr( dot + 1 ), name, read ) );
         if ( groups[ group ].size() == 1 ) {
            keys.push_back( { group, {} } );
         }
      }
      for ( auto & key : keys ) {
         if ( !key.handler ) {
            key.handler = [ this, name = key.name, inside = groups[ key.name ] ](
                             auto const & node ) { mapping( node, name, inside ); };
         }
      }
      return keys;
   }

   void each( Sections const & sections, char const * what, Handler const & handler ) {
      for ( auto const & [ file, node ] : sections ) {
         fileIs( file );
         sequence( node, what, handler );
      }
   }

   // What is given once in all files together; `name` is its full name.
   Key unique( std::string key, std::string name, Handler reader ) {
      return { std::move( key ), [ this, name = std::move( name ),
                                   reader = std::move( reader ) ]( auto const & node ) {
                 auto const [ first, added ] = sources_.settings.emplace( name, placeOf( node ) );
                 if ( !added ) {
                    return duplicate( node, name, first->second );
                 }
                 reader( node );
              } };
   }

   // The same, with a single value.
   Key once( std::string key, std::string const & name,
             std::function< void( YAML::Node const & node, std::string const & value ) > reader ) {
      return unique( std::move( key ), name,
                     [ this, name, reader = std::move( reader ) ]( auto const & node ) {
                        auto const value = scalar( node, name ); // reports what is not a single one
                        if ( node.IsScalar() || node.IsNull() ) {
                           reader( node, value );
                        }
                     } );
   }

   void duplicate( YAML::Node const & node, std::string const & what, Place const & first ) {
      error( node, "duplicate " + what + firstDefinedAt( first ) );
   }

   void readProcessSetting( ProcessSetting const & setting, YAML::Node const & node,
                            std::string const & value ) {
      auto const problem = problemWith( setting, value );
      if ( !problem.empty() ) {
         return error( node, problem );
      }
      config_.process.valueIs( setting, value );
   }

   void readVrf( YAML::Node const & node ) {
      auto const item = vrfAt( node );
      if ( !item ) {
         return;
      }
      auto const & vrf = item->name;
      auto const [ first, added ] = sources_.vrfs.emplace( vrf, placeOf( item->nameNode ) );
      if ( !added ) {
         return duplicate( item->nameNode, "VRF " + quoted( vrf ), first->second );
      }
      config_.vrfs.emplace( vrf, item->netNs.value_or( "" ) );
      if ( !item->netNs || !checkNamespace( item->netNsNode, *item->netNs ) ) {
         return;
      }
      auto const [ user, isFirst ] = vrfOfNamespace_.emplace( *item->netNs, vrf );
      if ( !isFirst ) {
         error( item->netNsNode,
                namespaceTaken( *item->netNs, user->second, sources_.vrfs.at( user->second ) ) );
      }
   }

   void readInterface( YAML::Node const & node ) {
      auto const item = interfaceAt( node );
      if ( !item ) {
         return;
      }
      auto const & interface = item->interface;
      auto const [ first, added ] =
         sources_.interfaces.emplace( interface.name, placeOf( item->nameNode ) );
      if ( !added ) {
         return duplicate( item->nameNode, "interface " + quoted( interface.name ), first->second );
      }
      config_.interfaces.emplace( interface.name, interface );
      if ( isWhole_ && interface.vrf != defaultVrf && !config_.vrfs.contains( interface.vrf ) ) {
         error( item->vrfNode, unknownVrf( interface.vrf ) );
      }
      if ( !checkDevice( item->deviceNode, interface ) ) {
         return;
      }
      auto const [ user, isFirst ] =
         interfaceOfDevice_.emplace( std::pair( interface.vrf, interface.device ), interface.name );
      if ( !isFirst ) {
         error( item->deviceNode,
                deviceTaken( interface, user->second, sources_.interfaces.at( user->second ) ) );
      }
   }

   void readAgent( YAML::Node const & node ) {
      YAML::Node name, messages;
      mapping( node, "an agent",
               { { "name", [ & ]( auto const & value ) { name.reset( value ); } },
                 { "messages", [ & ]( auto const & value ) { messages.reset( value ); } } } );
      auto const agent = requiredName( node, name, { "agent", "name", maxAgentBytes } );
      if ( !agent ) {
         return;
      }
      if ( agent->starts_with( learnedAgents ) ) {
         return error( name, "agent " + quoted( *agent ) + ": names that begin with " +
                                quoted( std::string( learnedAgents ) ) +
                                " are reserved for what valend learns; use another name" );
      }
      auto const [ first, added ] = agentsOfFile_.emplace( std::pair( file(), *agent ), name );
      if ( !added ) {
         return duplicate( name, "agent " + quoted( *agent ), placeOf( first->second ) );
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
         return duplicate( key, "interface " + quoted( interface ) + " of agent " + quoted( agent ),
                           first->second );
      }
      if ( !node.IsSequence() || node.size() == 0 ) {
         return error( node.IsNull() ? key : node, "no frames for interface " +
                                                      quoted( interface ) +
                                                      "; expected a list of one or more" );
      }
      FrameList frames;
      sequence( node, interface, [ & ]( auto const & frame ) { readFrame( frame, frames ); } );
      config_.agents[ agent ].emplace( interface, std::move( frames ) );
   }

   void readFrame( YAML::Node const & node, FrameList & frames ) {
      if ( tooManyFrames_ ) { // which was reported; aliases may stand for millions
         return;
      }
      if ( !node.IsScalar() ) {
         return error( node, "a frame must be text: hexadecimal digits, \"base64:...\", "
                             "\"pcap:...\" or \"pcapng:...\"" );
      }
      try {
         for ( auto & frame : framesOf( node.Scalar(), directoryOf( file() ) ) ) {
            checkFrame( node, frame );
            frameBytes_ += frame.size();
            ++frames_;
            frames.push_back( std::move( frame ) );
         }
      } catch ( FrameError const & e ) {
         error( node, e.what() );
      }
      if ( frames_ > maxConfigFrames || frameBytes_ > maxConfigFrameBytes ) {
         tooManyFrames_ = true;
         error( node, "more than " + std::to_string( maxConfigFrames ) + " frames or " +
                         std::to_string( maxConfigFrameBytes ) +
                         " bytes in frames, which is the limit" );
      }
   }

   // An alias is the same frame once more.
   void checkFrame( YAML::Node const & node, std::string const & frame ) {
      auto text = doubtAbout( frame );
      if ( text.empty() ) {
         return;
      }
      ConfigError doubt{ placeOf( node ), "the frame is probably wrong: " + text };
      if ( std::find( doubts_.begin(), doubts_.end(), doubt ) != doubts_.end() ) {
         return;
      }
      if ( doubts_.size() < maxErrors ) {
         doubts_.push_back( std::move( doubt ) );
      } else {
         ++moreDoubts_;
      }
   }

   std::vector< ConfigError > listedDoubts() {
      if ( moreDoubts_ ) {
         doubts_.push_back(
            { { doubts_.back().place.file }, "and " + counted( moreDoubts_, "more warning" ) } );
      }
      return std::move( doubts_ );
   }

   Sections vrfs_;
   Sections interfaces_;
   Sections agents_;
   Config config_;
   std::map< std::string, std::string > vrfOfNamespace_;
   std::map< std::pair< std::string, std::string >, std::string > interfaceOfDevice_; // in a VRF
   std::map< std::pair< std::string, std::string >, YAML::Node > agentsOfFile_; // by file and name
   Sources sources_;
   std::size_t frames_ = 0;
   std::size_t frameBytes_ = 0;
   bool tooManyFrames_ = false;
   std::vector< ConfigError > doubts_; // about frames
   std::size_t moreDoubts_ = 0;        // that are not listed
   bool isWhole_ = true;               // all files so far were read and parsed
};

} // namespace

ConfigResult parseConfig( std::vector< ConfigText > const & texts ) {
   return ConfigReader().read( texts );
}

ConfigResult parseConfig( std::string const & text, std::string const & file ) {
   return parseConfig( { { file, text } } );
}

} // namespace Settings
