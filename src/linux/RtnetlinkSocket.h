// An rtnetlink socket in a namespace.
#pragma once

#include "linux/NetNs.h"

#include <cstddef>
#include <optional>
#include <span>

namespace Valen::Linux {

class RtnetlinkSocket {
 public:
   // The kernel fills at most 32 KiB of a dump into one datagram.
   static constexpr std::size_t datagramBytes = 64 << 10;

   enum class Received : U8 {
      datagram,
      nothing, // none is waiting
      lost,    // the receive buffer overran, or a datagram did not fit: anything may have changed
   };

   // Opens the socket inside `netNs`, and subscribes it to the changes of devices when
   // `receiveBuffer` (bytes) is given. Throws Quill::ErrnoException.
   RtnetlinkSocket( NetNs const & netNs, std::optional< int > receiveBuffer );

   int fd() const noexcept { return fd_.get(); }

   // Throws Quill::ErrnoException.
   void send( std::span< std::byte const > request );
   // Takes the next datagram of the kernel into `buffer`, which should have datagramBytes; what was
   // taken is then `datagram`. Throws Quill::ErrnoException.
   Received receive( std::span< std::byte > buffer, std::span< std::byte const > & datagram );

 private:
   Fd fd_;
};

} // namespace Valen::Linux
