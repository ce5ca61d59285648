// Feeds any text to the configuration reader, as a configuration and a drop-in. Reading must terminate,
// errors must be single lines, sorted, each with a place in one of the files, and a configuration
// without errors must be valid, and the same after it was written and read again.
#include "settings/ConfigReader.h"
#include "settings/ConfigWriter.h"
#include "settings/Hex.h"

#include <cstdint>
#include <cstdlib>
#include <set>

namespace {

void require( bool condition ) {
   if ( !condition ) {
      std::abort();
   }
}

void requireValid( Settings::Config const & config ) {
   std::set< std::string > netNss{ Settings::defaultVrf };
   for ( auto const & [ vrf, netNs ] : config.vrfs ) {
      require( vrf != Settings::defaultVrf && netNss.insert( netNs ).second );
   }
   std::set< std::pair< std::string, std::string > > devices;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      require( interface.name == name && !name.empty() && !interface.device.empty() );
      require( interface.vrf == Settings::defaultVrf || config.vrfs.contains( interface.vrf ) );
      require( devices.emplace( interface.vrf, interface.device ).second );
   }
   for ( auto const & [ agent, messages ] : config.agents ) {
      for ( auto const & [ interface, frames ] : messages ) {
         require( config.interfaces.contains( interface ) && !frames.empty() );
         for ( auto const & frame : frames ) {
            require( frame.size() >= Settings::minFrameBytes );
         }
      }
   }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   std::string const text( reinterpret_cast< char const * >( data ), size );
   auto const cut = text.find( "\n===\n" ); // the drop-in follows it
   auto const main = text.substr( 0, cut );
   auto const dropIn = cut == text.npos ? std::string() : text.substr( cut + 5 );
   auto const result = Settings::parseConfig( { { "main", main }, { "drop-in", dropIn } } );
   bool inDropIn = false;
   for ( auto const & error : result.errors ) {
      require( error.place.file == "drop-in" || ( error.place.file == "main" && !inDropIn ) );
      require( !error.text.empty() && error.place.line >= 0 && error.place.column >= 0 );
      require( error.message().find( '\n' ) == std::string::npos );
      inDropIn = error.place.file == "drop-in";
   }
   if ( result.errors.empty() ) {
      requireValid( result.config );
      auto const again = Settings::parseConfig( Settings::yamlOf( result.config ), "written" );
      require( again.errors.empty() && again.config == result.config );
   }
   return 0;
}
