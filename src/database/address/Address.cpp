#include "database/address/Address.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <string_view>
#include <sys/un.h>
#include <utility>

namespace Database {

namespace {

constexpr std::string_view unixScheme = "unix://";
constexpr std::string_view tcpScheme = "redis://";
constexpr std::size_t longestPath = sizeof( sockaddr_un::sun_path ) - 1;

[[noreturn]] void invalid( std::string const & what ) {
   throw InvalidAddress( what );
}

bool isControl( char c ) noexcept {
   return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
}

std::optional< U32 > number( std::string_view text, U32 last ) noexcept {
   U32 value = 0;
   auto const end = text.data() + text.size();
   auto const [ stop, error ] = std::from_chars( text.data(), end, value );
   if ( error != std::errc() || stop != end || value > last ) {
      return std::nullopt;
   }
   return value;
}

// With the bytes that "%" stands for. `what` names the part in errors, which do not quote it: it may be a password.
std::string decoded( std::string_view text, char const * what ) {
   std::string bytes;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      if ( text[ i ] != '%' ) {
         bytes += text[ i ];
         continue;
      }
      unsigned value = 0;
      auto const digits = text.substr( i + 1, 2 );
      auto const end = digits.data() + digits.size();
      auto const [ stop, error ] = std::from_chars( digits.data(), end, value, 16 );
      if ( digits.size() < 2 || error != std::errc() || stop != end ) {
         invalid( std::string( "the " ) + what +
                  " has a \"%\" without two hexadecimal digits; write \"%25\" for \"%\"" );
      }
      bytes += static_cast< char >( value );
      i += 2;
   }
   if ( std::any_of( bytes.begin(), bytes.end(), isControl ) ) {
      invalid( std::string( "the " ) + what + " has a control character" );
   }
   return bytes;
}

void setUser( Address & address, std::string_view text ) {
   if ( !address.user.empty() ) {
      invalid( "the user is given twice; expected before \"@\" or as \"user=\"" );
   }
   address.user = decoded( text, "user" );
}

void setOption( Address & address, std::string_view option ) {
   auto const equals = option.find( '=' );
   auto const name = option.substr( 0, equals );
   auto const value = equals == option.npos ? std::string_view() : option.substr( equals + 1 );
   if ( name == "db" ) {
      auto const database = number( value, 65'535 );
      if ( !database ) {
         invalid( "db is \"" + decoded( value, "db" ) + "\"; expected a number from 0 to 65535" );
      }
      address.database = *database;
   } else if ( name == "user" ) {
      setUser( address, value );
   } else if ( name == "password-file" ) {
      address.passwordFile = decoded( value, "password-file" );
      if ( !address.passwordFile.starts_with( "/" ) ) {
         invalid( "password-file is \"" + address.passwordFile + "\"; expected an absolute path" );
      }
   } else {
      // Not quoted: a "?" in a password that is not written as "%3F" begins what looks like an option.
      invalid( "an option after \"?\" is unknown; expected db=N, user=NAME or password-file=PATH" );
   }
}

void setOptions( Address & address, std::string_view options ) {
   while ( !options.empty() ) {
      auto const end = std::min( options.find( '&' ), options.size() );
      setOption( address, options.substr( 0, end ) );
      options.remove_prefix( std::min( end + 1, options.size() ) );
   }
}

void setPort( Address & address, std::string_view text ) {
   auto const port = number( text, 65'535 );
   if ( !port || *port == 0 ) {
      invalid( "the port is not a number from 1 to 65535" );
   }
   address.port = static_cast< U16 >( *port );
}

void setHost( Address & address, std::string_view text ) {
   auto host = text.substr( 0, text.find( ':' ) );
   auto rest = text.substr( host.size() );
   if ( text.starts_with( "[" ) ) {
      auto const end = text.find( ']' );
      if ( end == text.npos ) {
         invalid( "the host has \"[\" without \"]\"" );
      }
      host = text.substr( 1, end - 1 );
      rest = text.substr( end + 1 );
   }
   address.host = decoded( host, "host" );
   if ( address.host.empty() || address.host.size() > 253 ||
        address.host.find_first_of( "/ \"" ) != std::string::npos ) {
      invalid( "the host is not a name or an address; expected redis://HOST[:PORT]" );
   }
   if ( rest.starts_with( ":" ) ) {
      setPort( address, rest.substr( 1 ) );
   } else if ( !rest.empty() ) {
      invalid( "expected \":PORT\" or nothing after the host" );
   }
}

void setServer( Address & address, std::string_view text ) {
   if ( auto const at = text.rfind( '@' ); at != text.npos ) {
      auto const credentials = text.substr( 0, at );
      auto const colon = credentials.find( ':' );
      setUser( address, credentials.substr( 0, colon ) );
      if ( colon != credentials.npos ) {
         address.password = decoded( credentials.substr( colon + 1 ), "password" );
      }
      text.remove_prefix( at + 1 );
   }
   setHost( address, text );
}

void setPath( Address & address, std::string_view text ) {
   address.path = decoded( text, "path" );
   if ( !address.path.starts_with( "/" ) || address.path.size() > longestPath ) {
      invalid( "the path is \"" + address.path + "\"; expected an absolute path of up to " +
               std::to_string( longestPath ) +
               " bytes, such as unix:///run/redis/redis-server.sock" );
   }
}

// So that it can be parsed again. `plain` are the characters besides letters and digits that stand for themselves.
std::string encoded( std::string const & text, std::string_view plain = "-._~/" ) {
   std::string result;
   for ( auto const c : text ) {
      if ( std::isalnum( static_cast< unsigned char >( c ) ) ||
           plain.find( c ) != std::string_view::npos ) {
         result += c;
      } else {
         constexpr char digits[] = "0123456789ABCDEF";
         auto const byte = static_cast< unsigned char >( c );
         result += { '%', digits[ byte >> 4 ], digits[ byte & 15 ] };
      }
   }
   return result;
}

} // namespace

Address Address::parse( std::string const & text ) {
   Address address;
   auto const question = std::min( text.find( '?' ), text.size() );
   auto const server = std::string_view( text ).substr( 0, question );
   if ( server.starts_with( unixScheme ) ) {
      setPath( address, server.substr( unixScheme.size() ) );
   } else if ( server.starts_with( tcpScheme ) ) {
      setServer( address, server.substr( tcpScheme.size() ) );
   } else {
      invalid( "expected unix:///PATH or redis://[USER[:PASSWORD]@]HOST[:PORT]" );
   }
   setOptions( address, std::string_view( text ).substr( std::min( question + 1, text.size() ) ) );
   if ( !address.password.empty() && !address.passwordFile.empty() ) {
      invalid( "there are a password and a password-file; expected one of them" );
   }
   return address;
}

std::string Address::text() const {
   std::string result( path.empty() ? tcpScheme : unixScheme );
   if ( !path.empty() ) {
      result += encoded( path );
   } else {
      result +=
         host.find( ':' ) == host.npos ? encoded( host ) : "[" + encoded( host, "-._~:" ) + "]";
      result += ":" + std::to_string( port );
   }
   auto separator = '?';
   auto const option = [ & ]( char const * name, std::string const & value ) {
      result += std::exchange( separator, '&' );
      result += name + value;
   };
   if ( database ) {
      option( "db=", std::to_string( database ) );
   }
   if ( !user.empty() ) {
      option( "user=", encoded( user ) );
   }
   if ( !passwordFile.empty() ) {
      option( "password-file=", encoded( passwordFile ) );
   }
   return result;
}

} // namespace Database
