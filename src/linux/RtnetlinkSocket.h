// An rtnetlink socket in a namespace.
#pragma once

#include "linux/NetNs.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Valen::Linux {

class RtnetlinkSocket {
 public:
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
   // Takes the next datagram of the kernel. Throws Quill::ErrnoException.
   Received receive();
   // The datagram taken last; valid until the next receive().
   std::span< std::byte const > datagram() const noexcept;

 private:
   Fd fd_;
   std::vector< std::byte > buffer_;
   std::size_t length_ = 0;
};

} // namespace Valen::Linux
