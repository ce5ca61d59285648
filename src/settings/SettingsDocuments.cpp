// Fills the documents that list the settings of the process, when valend is built:
//   settings_documents TEMPLATE OUTPUT
// In a man page, the comment lines `.\" @options@`, `.\" @synopsis@`, `.\" @keys@` and
// `.\" @at-next-start@` are replaced; the schema gets a property for each setting of the files.
#include "settings/ProcessSettings.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

using Settings::ProcessSetting;
using Settings::processSettings;
using Settings::SettingType;
using Settings::TakesEffect;
using Json = nlohmann::ordered_json;

std::vector< ProcessSetting const * > settingsOfFiles() {
   std::vector< ProcessSetting const * > settings;
   for ( auto const & setting : processSettings ) {
      if ( setting.inFiles() ) {
         settings.push_back( &setting );
      }
   }
   return settings;
}

std::vector< ProcessSetting const * > settingsOfCommandLine() {
   std::vector< ProcessSetting const * > settings;
   for ( auto const & setting : processSettings ) {
      if ( setting.onCommandLine() ) {
         settings.push_back( &setting );
      }
   }
   return settings;
}

// "trace.file" as "trace" and "file"; "socket" as "" and "socket".
std::pair< std::string, std::string > groupAndKey( ProcessSetting const & setting ) {
   std::string const name( setting.name );
   auto const dot = name.find( '.' );
   return dot == name.npos ? std::pair( std::string(), name )
                           : std::pair( name.substr( 0, dot ), name.substr( dot + 1 ) );
}

std::string limitsOf( ProcessSetting const & setting ) {
   switch ( setting.type ) {
   case SettingType::path:
      return "A path of 1 to " + std::to_string( setting.maxBytes ) + " bytes.";
   case SettingType::absolutePath:
      return "An absolute path.";
   case SettingType::traceLevels:
      return "Patterns UNIT/LEVEL or UNIT/FIRST-LAST, separated by commas.";
   case SettingType::milliseconds:
      return "Milliseconds from 0 to " + std::to_string( Settings::maxMilliseconds ) + ".";
   case SettingType::databaseServer:
      return "The form is unix:///PATH or redis://[USER[:PASSWORD]@]HOST[:PORT], which may end in "
             "\"?\" and, "
             "separated by \"&\", db=N, user=NAME and password-file=PATH.";
   case SettingType::databasePrefix:
      return "Text of 1 to " + std::to_string( setting.maxBytes ) + " bytes.";
   case SettingType::group:
      break;
   }
   return std::string();
}

// --- Man pages -----------------------------------------------------------------------------------

char const * argumentOf( ProcessSetting const & setting ) {
   switch ( setting.type ) {
   case SettingType::traceLevels:
      return "levels";
   case SettingType::group:
      return "group";
   case SettingType::milliseconds:
      return "ms";
   case SettingType::databaseServer:
      return "url";
   case SettingType::databasePrefix:
      return "text";
   default:
      return "path";
   }
}

// Text with each sentence on a line of its own, as mdoc wants it.
std::string sentences( std::string text ) {
   for ( auto end = text.find( ". " ); end != text.npos; end = text.find( ". ", end ) ) {
      text.replace( end, 2, ".\n" );
   }
   return text.empty() ? text : text + "\n";
}

std::string descriptionOf( ProcessSetting const & setting ) {
   auto text = std::string( setting.help ) + ".\n" + sentences( limitsOf( setting ) ) +
               sentences( std::string( setting.details ) );
   if ( !setting.defaultText.empty() ) {
      text += "The default is " + std::string( setting.defaultText ) + ".\n";
   } else if ( !setting.defaultValue.empty() ) {
      text += "The default is\n.Ql " + std::string( setting.defaultValue ) + " .\n";
   } else {
      text += "There is no default.\n";
   }
   return text;
}

std::string synopsis() {
   std::string text;
   for ( auto const * setting : settingsOfCommandLine() ) {
      text += ".Op Fl -" + std::string( setting->option ) + " Ar " + argumentOf( *setting ) + "\n";
   }
   return text;
}

std::string options() {
   std::string text;
   for ( auto const * setting : settingsOfCommandLine() ) {
      text += ".It Fl -" + std::string( setting->option ) + " Ar " + argumentOf( *setting ) + "\n" +
              descriptionOf( *setting );
   }
   return text;
}

std::string keys() {
   std::string text, current;
   auto const enter = [ & ]( std::string const & group ) {
      if ( group != current ) {
         text += current.empty() ? "" : ".El\n";
         text += group.empty() ? "" : ".It Ic " + group + " : Ar mapping\n.Bl -tag -width Ds\n";
         current = group;
      }
   };
   for ( auto const * setting : settingsOfFiles() ) {
      auto const [ group, key ] = groupAndKey( *setting );
      enter( group );
      text +=
         ".It Ic " + key + " : Ar " + argumentOf( *setting ) + "\n" + descriptionOf( *setting );
   }
   enter( "" );
   return text;
}

std::string atNextStart() {
   std::string text;
   for ( auto const * setting : settingsOfFiles() ) {
      if ( setting->takesEffect == TakesEffect::atNextStart ) {
         text += ".It\n.Ic " + std::string( setting->name ) + "\n";
      }
   }
   return text;
}

std::string filledPage( std::istream & page ) {
   std::map< std::string, std::string ( * )() > const parts{ { "@synopsis@", synopsis },
                                                             { "@options@", options },
                                                             { "@keys@", keys },
                                                             { "@at-next-start@", atNextStart } };
   std::string text;
   for ( std::string line; std::getline( page, line ); ) {
      auto const part =
         line.starts_with( ".\\\" @" ) ? parts.find( line.substr( 4 ) ) : parts.end();
      text += part == parts.end() ? line + "\n" : part->second();
   }
   return text;
}

// --- Schema --------------------------------------------------------------------------------------

Json schemaOf( ProcessSetting const & setting ) {
   auto description = std::string( setting.help ) + ".";
   for ( auto const & more : { limitsOf( setting ), std::string( setting.details ) } ) {
      description += more.empty() ? "" : " " + more;
   }
   if ( setting.takesEffect == TakesEffect::atNextStart ) {
      description += " Takes effect at the next start.";
   }
   if ( setting.type == SettingType::milliseconds ) {
      return { { "description", description },
               { "type", "integer" },
               { "minimum", 0 },
               { "maximum", Settings::maxMilliseconds },
               { "default", std::stoi( std::string( setting.defaultValue ) ) } };
   }
   Json schema{ { "description", description }, { "type", "string" } };
   if ( setting.type != SettingType::traceLevels ) {
      schema[ "minLength" ] = 1;
      schema[ "maxLength" ] = setting.maxBytes;
   }
   if ( setting.type == SettingType::databaseServer ) {
      schema[ "pattern" ] = "^(unix:///|redis://)[^ ]+$";
   } else if ( setting.type == SettingType::absolutePath ) {
      schema[ "pattern" ] = "^/";
   }
   if ( !setting.defaultValue.empty() ) {
      schema[ "default" ] = std::string( setting.defaultValue );
   }
   return schema;
}

std::string filledSchema( std::istream & input ) {
   auto schema = Json::parse( input );
   auto & properties = schema.at( "properties" );
   for ( auto const * setting : settingsOfFiles() ) {
      auto const [ group, key ] = groupAndKey( *setting );
      if ( group.empty() ) {
         properties[ key ] = schemaOf( *setting );
         continue;
      }
      if ( !properties.contains( group ) ) {
         properties[ group ] = { { "type", "object" },
                                 { "additionalProperties", false },
                                 { "properties", Json::object() } };
      }
      properties[ group ][ "properties" ][ key ] = schemaOf( *setting );
   }
   return schema.dump( 3 ) + "\n";
}

} // namespace

int main( int argc, char ** argv ) try {
   if ( argc != 3 ) {
      std::cerr << "usage: settings_documents TEMPLATE OUTPUT\n";
      return 2;
   }
   std::ifstream input( argv[ 1 ], std::ios::binary );
   std::string const name = argv[ 1 ];
   auto const text = name.ends_with( ".json.in" ) ? filledSchema( input ) : filledPage( input );
   std::ofstream output( argv[ 2 ], std::ios::binary );
   output << text << std::flush;
   if ( !input.is_open() || !output ) {
      std::cerr << "settings_documents: cannot write " << argv[ 2 ] << " from " << name << '\n';
      return 1;
   }
   return 0;
} catch ( std::exception const & e ) {
   std::cerr << "settings_documents: " << argv[ 1 ] << ": " << e.what() << '\n';
   return 1;
}
