// An owned file descriptor. Every descriptor in this room is opened with CLOEXEC and NONBLOCK.
#pragma once

#include "platform/quill/Exception.h"

#include <string>
#include <utility>

namespace Valen::Linux {

// Closes its descriptor when destroyed. A value below 0 means no descriptor.
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
   // Returns the descriptor, which the caller owns from now on.
   int release() noexcept { return std::exchange( descriptor_, -1 ); }
   // Does not change errno.
   void close() noexcept;

 private:
   int descriptor_ = -1;
};

// The system's text for an errno, such as "Network is down".
std::string errorText( int number );

// Throws Quill::ErrnoException with `what`, ": " and the system's text for `number`.
[[noreturn]] void throwErrno( std::string const & what, int number );

// Returns an owner of `descriptor`. If it is below 0, throws as throwErrno does, with errno.
Fd requireFd( int descriptor, char const * what );

} // namespace Valen::Linux
