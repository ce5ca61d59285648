// What the link controller needs of the kernel: devices by name, links up and down, and what became
// of the frames. Realised by KernelLinks; by a fake in tests.
#pragma once

#include "platform/quill/Int.h"

#include <optional>
#include <string>
#include <vector>

namespace Valend {

// Where a link is: a device in a namespace.
struct LinkPlace {
   std::string netNs;
   std::string device;
   auto operator<=>( LinkPlace const & ) const = default;
};

struct LinkDevice {
   U32 ifIndex = 0;
   bool up = false;      // set up by the operator (IFF_UP)
   bool carrier = false; // and able to carry frames
   U32 mtu = 0;          // bytes after the link-layer header
};

// A packet of a burst that the kernel refused.
struct RefusedPacket {
   U32 packet = 0;  // its number in the burst, from 0
   int number = 0;  // the errno
   std::string why; // "Network is down", "index 7 is now eth9, not et1"
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
   // The packets of the last burst to the device that were refused, in order.
   virtual std::vector< RefusedPacket > refused( LinkPlace const & place ) const = 0;
   // Bytes of frames, in the namespace's endpoints, that have not left the machine yet.
   virtual U64 outstandingBytes( std::string const & netNs ) const = 0;

   // How often notices of devices were lost and all devices of a namespace were asked for.
   virtual U64 resyncs() const = 0;
};

} // namespace Valend
