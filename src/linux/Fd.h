// An owned file descriptor. Every descriptor of this folder is CLOEXEC and NONBLOCK from birth.
#pragma once

#include "platform/quill/Exception.h"

#include <string>
#include <utility>

namespace Valen::Linux {

// Closes the descriptor that it holds. A descriptor below 0 is none.
class Fd {
 public:
   Fd() noexcept = default;
   explicit Fd( int descriptor ) noexcept : descriptor_( descriptor ) {}
   Fd( Fd && other ) noexcept : descriptor_( other.release() ) {}
   Fd & operator=( Fd && other ) noexcept {
      std::swap( descriptor_, other.descriptor_ );
      return *this;
   }
   ~Fd() { close(); }

   int get() const noexcept { return descriptor_; }
   explicit operator bool() const noexcept { return descriptor_ >= 0; }
   // Gives the descriptor to the caller.
   int release() noexcept { return std::exchange( descriptor_, -1 ); }
   // Leaves errno as it was.
   void close() noexcept;

 private:
   int descriptor_ = -1;
};

// The system's text for an errno: "Network is down".
std::string errorText( int number );

// Throws Quill::ErrnoException with `what`, ": " and the system's text for `number`.
[[noreturn]] void throwErrno( std::string const & what, int number );

// Owns `descriptor`, or throws as throwErrno does when it is below 0, with errno as the number.
Fd requireFd( int descriptor, char const * what );

} // namespace Valen::Linux
