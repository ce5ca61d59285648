// Builds and parses the kernel's link messages. Uses no socket.
#pragma once

#include "platform/quill/Int.h"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Valen::Linux::Rtnetlink {

// One message of a datagram. The views are into the datagram.
struct Message {
   enum class Kind : U8 {
      link,    // a device exists, or has changed
      linkDel, // a device was deleted, or moved to another namespace
      done,    // the end of a dump; `error` is set if it ended early
      error,   // the answer to a request; `error` 0 is an acknowledgement
      overrun, // the kernel lost data
      other,   // any other message
   };

   Kind kind = Kind::other;
   U32 sequence = 0;         // of the request; 0 in notifications
   bool interrupted = false; // a change during the dump; it may be inconsistent
   int error = 0;            // errno, of done and error

   U32 ifIndex = 0;             // this and the rest: of link and linkDel
   std::string_view deviceName; // empty if the message has none
   U16 hardwareType = 0;        // ARPHRD_ETHER and others
   U32 flags = 0;               // IFF_UP and others
   U32 mtu = 0;                 // 0 if the message has none
   U32 carrierUps = 0;          // how often its carrier came up; 0 if the message does not tell
};

// Parses any bytes as a datagram, and never reads outside them.
class Parser {
 public:
   explicit Parser( std::span< std::byte const > datagram ) noexcept : rest_( datagram ) {}

   // Reads the next message. Returns false at the end, and at an invalid message.
   bool next( Message & message ) noexcept;
   // Whether an invalid message was found.
   bool damaged() const noexcept { return damaged_; }

 private:
   std::span< std::byte const > rest_;
   bool damaged_ = false;
};

// What ip-link(8) shows after "link/" for a hardware type: "ether", "none", "sit"; a number in brackets for
// the rarer ones.
std::string linkLayerOf( U16 hardwareType );

// A request for all devices of the namespace.
std::vector< std::byte > dumpRequest( U32 sequence );
// Requests to set a device up, and down, with an acknowledgment.
std::vector< std::byte > upRequest( U32 sequence, U32 ifIndex );
std::vector< std::byte > downRequest( U32 sequence, U32 ifIndex );

} // namespace Valen::Linux::Rtnetlink
