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
      nothing, // no datagram is waiting
      lost, // the receive buffer overflowed, or a datagram was too long: anything may have changed
   };

   // Opens the socket inside `netNs`. Throws Quill::ErrnoException.
   //   receiveBuffer   subscribes to changes of devices, with a buffer of so many bytes for them; without
   //                   it, the socket is for requests only
   RtnetlinkSocket( NetNs const & netNs, std::optional< int > receiveBuffer );

   int fd() const noexcept { return fd_.get(); }

   // Throws Quill::ErrnoException.
   void send( std::span< std::byte const > request );
   // Receives the next datagram of the kernel into `buffer`, which should have datagramBytes, and sets
   // `datagram` to the received bytes. Throws Quill::ErrnoException.
   Received receive( std::span< std::byte > buffer, std::span< std::byte const > & datagram );

 private:
   Fd fd_;
};

} // namespace Valen::Linux
