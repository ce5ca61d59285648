// The kernel's link messages: made and taken apart. Knows no socket.
#pragma once

#include "platform/quill/Int.h"

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace Valen::Linux::Rtnetlink {

// One message of a datagram. The views are into the datagram.
struct Message {
   enum class Kind : U8 {
      link,    // a device is there, or changed
      linkDel, // a device went: deleted, or moved to another namespace
      done,    // the end of a dump; `error` when it ended early
      error,   // the answer to a request; `error` 0 is an acknowledgement
      overrun, // the kernel lost data
      other,   // nothing of ours
   };

   Kind kind = Kind::other;
   U32 sequence = 0;         // of the request that it answers; 0 in notifications
   bool interrupted = false; // the dump that it belongs to met a change and may be inconsistent
   int error = 0;            // errno, of done and error

   U32 ifIndex = 0;             // from here on: of link and linkDel
   std::string_view deviceName; // empty when the message has none
   U32 flags = 0;               // IFF_UP and the rest
   U32 mtu = 0;                 // 0 when the message has none
};

// Takes datagrams apart, whatever their bytes: nothing outside them is read.
class Parser {
 public:
   explicit Parser( std::span< std::byte const > datagram ) noexcept : rest_( datagram ) {}

   // The next message. Returns false at the end, and at a message that makes no sense.
   bool next( Message & message ) noexcept;
   // Whether the datagram ended in something that makes no sense.
   bool damaged() const noexcept { return damaged_; }

 private:
   std::span< std::byte const > rest_;
   bool damaged_ = false;
};

// A request for all devices of the namespace.
std::vector< std::byte > dumpRequest( U32 sequence );
// A request for one device.
std::vector< std::byte > linkRequest( U32 sequence, U32 ifIndex );
// A request to set a device up or down, acknowledged.
std::vector< std::byte > upRequest( U32 sequence, U32 ifIndex, bool up );

} // namespace Valen::Linux::Rtnetlink
