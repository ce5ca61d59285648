#include "linux/Fd.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace Valen::Linux {

void Fd::close() noexcept {
   if ( auto const descriptor = release(); descriptor >= 0 ) {
      auto const number = errno;
      ::close( descriptor ); // not repeated on EINTR: the descriptor is closed in any case
      errno = number;
   }
}

std::string errorText( int number ) {
   return std::generic_category().message( number );
}

void throwErrno( std::string const & what, int number ) {
   throw Quill::ErrnoException( what + ": " + errorText( number ), number );
}

Fd requireFd( int descriptor, char const * what ) {
   if ( descriptor < 0 ) {
      throwErrno( what, errno );
   }
   return Fd( descriptor );
}

} // namespace Valen::Linux
