#include "settings/DatabaseAddress.h"

#include "platform/quill/Printable.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <optional>
#include <set>
#include <unistd.h>

namespace Settings {

namespace {

constexpr std::string_view unixScheme = "unix://";
constexpr std::string_view redisScheme = "redis://";
constexpr std::size_t maxUnixPathBytes = 107;
constexpr std::size_t maxHostBytes = 255;
constexpr unsigned maxDatabaseNumber = 65535;

std::string expected( std::string_view what ) {
   return std::string( what ) + "; expected " + std::string( databaseServerForm );
}

// Whether `text` is a number from `least` to `most`.
bool isNumber( std::string_view text, unsigned least, unsigned most ) {
   unsigned value = 0;
   auto const end = text.data() + text.size();
   auto const [ stop, code ] = std::from_chars( text.data(), end, value );
   return code == std::errc() && stop == end && value >= least && value <= most;
}

// The part of `text` before `separator`, which is removed with it; all of it if there is no separator.
std::string_view takeUntil( std::string_view & text, char separator ) {
   auto const end = text.find( separator );
   auto const part = text.substr( 0, end );
   text.remove_prefix( end == text.npos ? text.size() : end + 1 );
   return part;
}

std::string problemWithOption( std::string_view option, std::set< std::string_view > & seen ) {
   auto value = option;
   auto const name = takeUntil( value, '=' );
   if ( name != "db" && name != "user" && name != "password-file" ) {
      return "has an unknown option " + Quill::printable( std::string( name ) ) +
             "; expected db, user or password-file";
   }
   if ( !seen.insert( name ).second ) {
      return "has the option " + std::string( name ) + " twice";
   }
   if ( name == "db" && !isNumber( value, 0, maxDatabaseNumber ) ) {
      return "has a db that is not a number; expected 0 to " + std::to_string( maxDatabaseNumber );
   }
   if ( name == "user" && value.empty() ) {
      return "has an empty user; expected a name";
   }
   if ( name == "password-file" && !value.starts_with( '/' ) ) {
      return "has a password-file that is no absolute path";
   }
   return "";
}

std::string problemWithOptions( std::string_view options ) {
   std::set< std::string_view > seen;
   while ( !options.empty() ) {
      auto problem = problemWithOption( takeUntil( options, '&' ), seen );
      if ( !problem.empty() ) {
         return problem;
      }
   }
   return "";
}

std::string problemWithPath( std::string_view path ) {
   if ( !path.starts_with( '/' ) ) {
      return expected( "has no absolute path" );
   }
   if ( path.size() < 2 || path.size() > maxUnixPathBytes ) {
      return "has a path of " + std::to_string( path.size() ) + " bytes; expected 2 to " +
             std::to_string( maxUnixPathBytes );
   }
   return "";
}

bool isHost( std::string_view host ) {
   return !host.empty() && host.size() <= maxHostBytes &&
          host.find_first_of( "/@:[]" ) == host.npos;
}

std::string problemWithHost( std::string_view authority ) {
   auto rest = authority.substr( authority.rfind( '@' ) + 1 ); // npos + 1 is 0
   std::optional< std::string_view > port;
   bool valid = false;
   if ( rest.starts_with( '[' ) ) { // an address of IPv6
      rest.remove_prefix( 1 );
      bool const closed = rest.find( ']' ) != rest.npos;
      auto const address = takeUntil( rest, ']' );
      valid = closed && address.find( ':' ) != address.npos &&
              address.find_first_of( "/@[" ) == address.npos && address.size() <= maxHostBytes &&
              ( rest.empty() || rest.starts_with( ':' ) );
      if ( rest.starts_with( ':' ) ) {
         port = rest.substr( 1 );
      }
   } else {
      bool const hasPort = rest.find( ':' ) != rest.npos;
      valid = isHost( takeUntil( rest, ':' ) );
      if ( hasPort ) {
         port = rest;
      }
   }
   if ( !valid ) {
      return expected( "has no valid host" );
   }
   if ( port && !isNumber( *port, 1, 65535 ) ) {
      return "has a port that is not a number; expected 1 to 65535";
   }
   return "";
}

} // namespace

std::string problemWithDatabaseServer( std::string_view server ) {
   if ( server.size() > maxDatabaseServerBytes ) {
      return "has " + std::to_string( server.size() ) + " bytes; expected 1 to " +
             std::to_string( maxDatabaseServerBytes );
   }
   bool const hasSpace = std::any_of( server.begin(), server.end(), []( char character ) {
      return static_cast< unsigned char >( character ) <= ' ';
   } );
   if ( hasSpace || Quill::unprintableIn( std::string( server ) ) ) {
      return expected( "has whitespace, or a character that is not printable" );
   }
   auto options = server;
   auto const address = takeUntil( options, '?' );
   auto problem =
      address.starts_with( unixScheme )    ? problemWithPath( address.substr( unixScheme.size() ) )
      : address.starts_with( redisScheme ) ? problemWithHost( address.substr( redisScheme.size() ) )
                                           : expected( "has an unknown scheme" );
   return problem.empty() ? problemWithOptions( options ) : problem;
}

std::string problemWithDatabasePrefix( std::string_view prefix ) {
   bool const fits = !prefix.empty() && prefix.size() <= maxDatabasePrefixBytes &&
                     prefix.find_first_of( " \t\n\v\f\r*?[]\\^" ) == prefix.npos &&
                     !prefix.ends_with( ':' ) && !Quill::unprintableIn( std::string( prefix ) );
   return fits ? ""
               : "is \"" + Quill::printable( std::string( prefix ) ) + "\"; expected 1 to " +
                    std::to_string( maxDatabasePrefixBytes ) +
                    " printable bytes without whitespace, \"*\", \"?\", \"[\", \"]\", \"\\\" or "
                    "\"^\", and no "
                    "\":\" at the end";
}

std::string withoutPassword( std::string server ) {
   if ( !server.starts_with( redisScheme ) ) {
      return server;
   }
   auto const end = server.rfind( '@', server.find( '?' ) );
   auto const colon = server.find( ':', redisScheme.size() );
   if ( end != server.npos && colon < end ) {
      server.replace( colon + 1, end - colon - 1, "***" );
   }
   return server;
}

std::string databasePrefixOfSystem() {
   char name[ HOST_NAME_MAX + 1 ] = {};
   if ( ::gethostname( name, sizeof( name ) - 1 ) != 0 || !name[ 0 ] ) {
      return "valen:localhost";
   }
   return std::string( "valen:" ) + name;
}

} // namespace Settings
