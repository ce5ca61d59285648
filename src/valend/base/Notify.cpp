#include "valend/base/Notify.h"

#include "linux/Fd.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valend {

bool notifyManager( std::string const & state ) noexcept {
   auto const * const place = std::getenv( "NOTIFY_SOCKET" );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ( !place || ( *place != '/' && *place != '@' ) ||
        std::strlen( place ) >= sizeof address.sun_path ) {
      return false;
   }
   auto const length = std::strlen( place );
   std::memcpy( address.sun_path, place, length );
   if ( *place == '@' ) { // an abstract name begins with a zero byte
      address.sun_path[ 0 ] = '\0';
   }
   Valen::Linux::Fd const fd( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   auto const size = static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + length );
   return fd && ::sendto( fd.get(), state.data(), state.size(), MSG_NOSIGNAL,
                          reinterpret_cast< sockaddr const * >( &address ),
                          size ) == static_cast< ssize_t >( state.size() );
}

} // namespace Valend
