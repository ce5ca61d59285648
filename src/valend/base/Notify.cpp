#include "valend/base/Notify.h"

#include "linux/Fd.h"
#include "linux/UnixAddress.h"

#include <cstdlib>

namespace Valend {

using Valen::Linux::UnixAddress;

namespace {

// NOTIFY_SOCKET names a path, or after "@" an abstract name.
std::optional< UnixAddress > managerAddress() noexcept {
   auto const * const value = std::getenv( "NOTIFY_SOCKET" );
   std::string_view const name( value ? value : "" );
   if ( name.starts_with( '@' ) ) {
      return UnixAddress::abstract( name.substr( 1 ) );
   }
   return name.starts_with( '/' ) ? UnixAddress::at( name ) : std::nullopt;
}

} // namespace

bool notifyManager( std::string const & state ) noexcept {
   auto const address = managerAddress();
   if ( !address ) {
      return false;
   }
   Valen::Linux::Fd const fd( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   return fd && ::sendto( fd.get(), state.data(), state.size(), MSG_NOSIGNAL, address->get(),
                          address->size() ) == static_cast< ssize_t >( state.size() );
}

} // namespace Valend
