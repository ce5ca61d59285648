#include "settings/ConfigWriter.h"

#include "settings/Hex.h"

namespace Settings {

namespace {

// In double quotes. Not with the emitter of yaml-cpp: it replaces bytes that are not UTF-8, which the name of
// a device may have.
std::string quoted( std::string const & text ) {
   std::string result = "\"";
   for ( auto const character : text ) {
      auto const byte = static_cast< unsigned char >( character );
      if ( byte < 0x20 || byte == 0x7f ) {
         result += "\\x" + toHex( std::string( 1, character ) );
         continue;
      }
      if ( character == '"' || character == '\\' ) {
         result += '\\';
      }
      result += character;
   }
   return result + '"';
}

std::string framesText( Frames const & frames ) {
   std::string text;
   for ( auto const & frame : frames ) {
      text += text.empty() ? "\"" : ", \"";
      text += toHex( frame );
      text += '"';
   }
   return "[" + text + "]";
}

// The settings of the process; "trace.file" is "file" in the mapping "trace".
std::string processText( ProcessConfig const & process ) {
   std::string text;
   std::map< std::string, std::string > groups;
   for ( auto const & setting : processSettings ) {
      auto const & value = process.given( setting );
      if ( !value ) {
         continue;
      }
      std::string const name( setting.name );
      auto const dot = name.find( '.' );
      if ( dot == name.npos ) {
         text += name + ": " + quoted( *value ) + "\n";
      } else {
         groups[ name.substr( 0, dot ) ] +=
            "  " + name.substr( dot + 1 ) + ": " + quoted( *value ) + "\n";
      }
   }
   for ( auto const & [ group, lines ] : groups ) {
      text += group + ":\n" + lines;
   }
   return text;
}

} // namespace

std::string yamlOf( Config const & config ) {
   std::string text;
   if ( config.shutdownDelayMs ) {
      text += "shutdown-delay-ms: " + std::to_string( *config.shutdownDelayMs ) + "\n";
   }
   if ( config.goodbyes.any() ) {
      text += "goodbyes: " + config.goodbyes.text() + "\n";
   }
   text += "vrfs:\n";
   for ( auto const & [ name, netNs ] : config.vrfs ) {
      text += "- {name: " + quoted( name ) + ", namespace: " + quoted( netNs ) + "}\n";
   }
   text += "interfaces:\n";
   for ( auto const & [ name, interface ] : config.interfaces ) {
      text += "- {name: " + quoted( name ) + ", device: " + quoted( interface.device ) +
              ", vrf: " + quoted( interface.vrf ) +
              ", shutdown-delay: " + ( interface.shutdownDelay ? "true" : "false" ) +
              ( interface.goodbyes ? ", goodbyes: " + interface.goodbyes->text() : "" ) + "}\n";
   }
   text += "agents:\n";
   for ( auto const & [ agent, messages ] : config.agents ) {
      text += "- name: " + quoted( agent ) + "\n  messages:\n";
      for ( auto const & [ interface, frames ] : messages ) {
         // "? " because a key of one line must not exceed 1024 bytes.
         text += "    ? " + quoted( interface ) + "\n    : " + framesText( frames ) + "\n";
      }
   }
   return text + processText( config.process );
}

} // namespace Settings
