#include "linux/UnixAddress.h"

#include <cstddef>

namespace Valen::Linux {

std::optional< UnixAddress > UnixAddress::at( std::string_view path ) noexcept {
   return of( path, 0 );
}

std::optional< UnixAddress > UnixAddress::abstract( std::string_view name ) noexcept {
   return of( name, 1 ); // behind a zero byte
}

// A path ends in a zero byte, an abstract name begins with one: either way one byte is taken.
std::optional< UnixAddress > UnixAddress::of( std::string_view name, std::size_t offset ) noexcept {
   UnixAddress result;
   if ( name.size() >= sizeof result.address_.sun_path ) {
      return std::nullopt;
   }
   result.address_.sun_family = AF_UNIX;
   name.copy( result.address_.sun_path + offset, name.size() );
   result.size_ = static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + name.size() + 1 );
   return result;
}

} // namespace Valen::Linux
