// Takes any text for entities of a database, over files. A line is an entity: its key, and the names and values of its
// fields, with tabs between them. The lines before an empty one are what was taken before.
//
// What is rejected must have a reason of one line, the configuration must be valid, and a fresh start with what was taken
// must come to the same (settings/Overlay.h). The text in which entities are kept must be read as what was written; any
// other text may be read as nothing, or as what is the same when it is written again.
#include "settings/ConfigReader.h"
#include "settings/ConfigWriter.h"
#include "settings/Overlay.h"
#include "valend/configuration/DatabaseText.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>

namespace {

void require( bool condition ) {
   if ( !condition ) {
      std::abort();
   }
}

Settings::ConfigResult const & files() {
   static auto const result =
      Settings::parseConfig( "vrfs: [{name: red, namespace: ns-red}]\n"
                             "interfaces:\n"
                             "  - {name: Ethernet1, device: et1}\n"
                             "  - {name: Ethernet2, device: et2, vrf: red}\n",
                             "files" );
   return result;
}

Settings::EntityChanges changesIn( std::istream & lines ) {
   Settings::EntityChanges changes;
   for ( std::string line; std::getline( lines, line ) && !line.empty(); ) {
      std::istringstream words( line );
      std::string key, name, value;
      std::getline( words, key, '\t' );
      Settings::Fields fields;
      while ( std::getline( words, name, '\t' ) ) {
         value.clear();
         std::getline( words, value, '\t' );
         fields[ name ] = value;
      }
      changes.insert_or_assign( key, fields );
   }
   return changes;
}

void requireReasons( Settings::Overlay const & overlay ) {
   for ( auto const & [ key, why ] : overlay.rejected() ) {
      require( !why.empty() && why.find( '\n' ) == std::string::npos );
   }
}

void layer( std::istream & lines ) {
   Settings::Overlay overlay;
   overlay.replace( changesIn( lines ) );
   overlay.settle( files().config, files().sources );
   requireReasons( overlay );
   overlay.replace( changesIn( lines ) );
   auto const result = overlay.settle( files().config, files().sources );
   requireReasons( overlay );

   auto const written = Settings::parseConfig( Settings::yamlOf( result.config ), "written" );
   require( written.errors.empty() && written.config == result.config );
   Settings::Overlay fresh;
   fresh.resume( overlay.taken() );
   require( fresh.settle( files().config, files().sources ).config == result.config );
   require( fresh.rejected().empty() );
}

void keep( std::string const & text ) {
   std::istringstream lines( text );
   Settings::Entities entities;
   for ( auto const & [ key, fields ] : changesIn( lines ) ) {
      entities.emplace( key, *fields );
   }
   auto const kept = Valend::databaseText( "server", entities );
   require( Valend::entitiesOfText( "server", kept ) == entities );
   require( !Valend::entitiesOfText( "other", kept ) );
   auto const head = kept.substr( 0, kept.find( '\n' ) + 1 );
   if ( auto const read = Valend::entitiesOfText( "server", head + text ) ) {
      require( Valend::entitiesOfText( "server", Valend::databaseText( "server", *read ) ) ==
               read );
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   std::string const text( reinterpret_cast< char const * >( data ), size );
   std::istringstream lines( text );
   layer( lines );
   keep( text );
   return 0;
}
