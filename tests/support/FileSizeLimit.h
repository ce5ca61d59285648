// No file may exceed a size, as on a full disk, while this exists.
#pragma once

#include <csignal>
#include <sys/resource.h>

namespace Valen::Test {

class FileSizeLimit {
 public:
   explicit FileSizeLimit( rlim_t bytes ) {
      ::getrlimit( RLIMIT_FSIZE, &before_ );
      rlimit const limit{ bytes, before_.rlim_max };
      ::setrlimit( RLIMIT_FSIZE, &limit );
   }
   ~FileSizeLimit() {
      ::setrlimit( RLIMIT_FSIZE, &before_ );
      std::signal( SIGXFSZ, handler_ );
   }
   FileSizeLimit( FileSizeLimit const & ) = delete;
   FileSizeLimit & operator=( FileSizeLimit const & ) = delete;

 private:
   rlimit before_{};
   void ( *handler_ )( int ) = std::signal( SIGXFSZ, SIG_IGN ); // the write then fails with EFBIG
};

} // namespace Valen::Test
