// What the link controller needs of the kernel: devices by name, links up and down, and what became
// of the frames. Realised by KernelLinks; by a fake in tests.
#pragma once

#include "platform/quill/Int.h"

#include <optional>
#include <string>

namespace Valend {

// Where a link is: a device in a namespace.
struct LinkPlace {
   std::string netNs;
   std::string device;
   bool operator==( LinkPlace const & ) const = default;
};

struct LinkDevice {
   U32 ifIndex = 0;
   bool up = false;      // set up by the operator (IFF_UP)
   bool carrier = false; // and able to carry frames
   U32 mtu = 0;          // bytes after the link-layer header
};

class LinkPort {
 public:
   // Packets that the kernel took and refused, over all endpoints of a namespace.
   struct Counters {
      U64 sent = 0;
      U64 failed = 0;
   };

   virtual ~LinkPort() = default;

   // The device as it was last heard of; nothing when it is not there.
   virtual std::optional< LinkDevice > device( LinkPlace const & place ) const = 0;

   // Whether the link is set up, asked of the kernel now. Throws Quill::ErrnoException: ENODEV when
   // there is no such device, ENOENT when there is no such namespace.
   virtual bool up( LinkPlace const & place ) = 0;
   // Sets the link up or down, and returns when it is. Throws as up() does, and what the kernel
   // answers.
   virtual void upIs( LinkPlace const & place, bool up ) = 0;

   virtual Counters counters( std::string const & netNs ) const = 0;
   // Why frames of the last burst to the device were refused; empty when none were.
   virtual std::string sendTrouble( LinkPlace const & place ) const = 0;
   // Bytes of frames, in the namespace's endpoints, that have not left the machine yet.
   virtual U64 outstandingBytes( std::string const & netNs ) const = 0;
};

} // namespace Valend
