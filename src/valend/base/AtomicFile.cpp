#include "valend/base/AtomicFile.h"

#include "linux/Fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace Valend {

std::string writeAtomically( std::string const & path, std::string const & text, unsigned mode ) {
   auto const beside = path + ".new";
   auto const failure = [ & ]( std::string const & where ) {
      auto const number = errno;
      ::unlink( beside.c_str() );
      return "cannot write " + where + ": " + Valen::Linux::errorText( number );
   };
   Valen::Linux::Fd file(
      ::open( beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode ) );
   if ( !file ) {
      return failure( beside );
   }
   auto const written = ::write( file.get(), text.data(), text.size() );
   if ( written != static_cast< ssize_t >( text.size() ) ) {
      errno = written < 0 ? errno : ENOSPC;
      return failure( beside );
   }
   file.close();
   if ( ::rename( beside.c_str(), path.c_str() ) < 0 ) {
      return failure( path );
   }
   return "";
}

} // namespace Valend
