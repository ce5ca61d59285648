#include "settings/DatabaseAddress.h"

#include "database/address/Address.h"
#include "platform/quill/Printable.h"

#include <climits>
#include <unistd.h>

namespace Settings {

std::string problemWithDatabaseServer( std::string const & server ) {
   if ( server.size() > maxDatabaseServerBytes ) {
      return "has " + std::to_string( server.size() ) + " bytes; expected 1 to " +
             std::to_string( maxDatabaseServerBytes );
   }
   try {
      Database::Address::parse( server );
   } catch ( Database::InvalidAddress const & e ) {
      return std::string( "has no valid address: " ) + e.what();
   }
   return "";
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

std::string withoutPassword( std::string const & server ) {
   return server.empty() ? "" : Database::Address::parse( server ).text();
}

std::string databasePrefixOfSystem() {
   char name[ HOST_NAME_MAX + 1 ] = {};
   if ( ::gethostname( name, sizeof( name ) - 1 ) != 0 || !name[ 0 ] ) {
      return "valen:localhost";
   }
   return std::string( "valen:" ) + name;
}

} // namespace Settings
