#include "valenctl/Options.h"

#include "settings/ProcessSettings.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace Valenctl {

namespace {

constexpr double secondsOfADay = 86400;
constexpr char const * jsonOption = "--json";

} // namespace

Options::Options() : socket( Settings::defaultSocket ) {}

std::vector< std::string > Options::hostNames() const {
   std::vector< std::string > names;
   std::istringstream stream( hosts );
   for ( std::string name; std::getline( stream, name, ',' ); ) {
      if ( name == "all" ) {
         return {};
      }
      names.push_back( name );
   }
   return names;
}

std::chrono::milliseconds Options::timeout() const {
   return std::chrono::milliseconds( static_cast< std::int64_t >( timeoutSeconds * 1000 ) );
}

void addOptions( CLI::App & app, Options & options ) {
   auto * const socket = app.add_option( "--socket", options.socket, "Socket of valend" )
                            ->type_name( "FILE" )
                            ->capture_default_str()
                            ->take_last(); // so that an alias can set one and the operator another
   auto * const database =
      app.add_option( "--database", options.database,
                      "Instead of the socket, use the database that many hosts share" )
         ->type_name( "URL" )
         ->excludes( socket )
         ->take_last();
   app.add_option( "--host", options.hosts, "Hosts of the database, separated by commas, or all" )
      ->type_name( "HOST" )
      ->take_last()
      ->needs( database );
   app.add_option( "--timeout", options.timeoutSeconds,
                   "How long to wait for an answer; 0 waits indefinitely" )
      ->type_name( "SECONDS" )
      ->capture_default_str()
      ->check( CLI::Range( 0.0, secondsOfADay ).description( "" ) );
   app.add_flag( jsonOption, options.json,
                 "Print answers and errors as JSON: one object, or one a line" );
}

Format formatIn( std::vector< std::string > const & words ) {
   auto const end = std::find( words.begin(), words.end(), "--" );
   return std::find( words.begin(), end, jsonOption ) != end ? Format::json : Format::text;
}

} // namespace Valenctl
