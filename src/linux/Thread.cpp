#include "linux/Thread.h"

#include <csignal>
#include <pthread.h>

namespace Valen::Linux {

namespace {

// A thread starts with the signal mask of the one that starts it.
class SignalsBlocked {
 public:
   SignalsBlocked() noexcept {
      sigset_t all;
      sigfillset( &all );
      ::pthread_sigmask( SIG_SETMASK, &all, &before_ );
   }
   ~SignalsBlocked() { ::pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }
   SignalsBlocked( SignalsBlocked const & ) = delete;
   SignalsBlocked & operator=( SignalsBlocked const & ) = delete;

 private:
   sigset_t before_;
};

} // namespace

std::thread startThread( char const * name, std::function< void() > work ) {
   SignalsBlocked const blocked;
   std::thread thread( std::move( work ) );
   ::pthread_setname_np( thread.native_handle(), name );
   return thread;
}

} // namespace Valen::Linux
