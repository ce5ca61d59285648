// Parses any text as the address of a database. What is accepted must be within its bounds, and the same, but for its
// password, after it was written and parsed again. An error must be a single line.
#include "database/address/Address.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

void require( bool condition ) {
   if ( !condition ) {
      std::abort();
   }
}

bool isControl( char c ) {
   return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   using Database::Address;
   Address address;
   try {
      address = Address::parse( std::string( reinterpret_cast< char const * >( data ), size ) );
   } catch ( Database::InvalidAddress const & e ) {
      std::string const text = e.what();
      require( !text.empty() && std::none_of( text.begin(), text.end(), isControl ) );
      return 0;
   }
   require( address.path.empty() != address.host.empty() && address.port > 0 );
   require( address.password.empty() || address.passwordFile.empty() );
   for ( auto const & text : { address.path, address.host, address.user, address.password,
                               address.passwordFile, address.text() } ) {
      require( std::none_of( text.begin(), text.end(), isControl ) );
   }
   auto const again = Address::parse( address.text() );
   address.password.clear();
   require( again == address && again.text() == address.text() );
   return 0;
}
