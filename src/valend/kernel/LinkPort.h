// What the link controller needs from the kernel: devices by name, links up and down, and what happened
// to the frames. Implemented by KernelLinks, and by a fake in tests.
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
   bool up = false;            // set up by the operator (IFF_UP)
   bool carrier = false;       // operational (IFF_RUNNING)
   U32 mtu = 0;                // bytes after the link-layer header
   U32 carrierUps = 0;         // how often its carrier came up since the device was made
   std::string linkLayer = {}; // empty: Ethernet; else as ip-link(8) has it after "link/": "none"
};

// What the kernel reports of a device.
enum class LinkSeen : U8 {
   up,   // its link is set up (IFF_UP)
   down, // its link is set down
   gone, // it was deleted, renamed or moved to another namespace
};

// A packet of a burst that the kernel rejected.
struct RefusedPacket {
   U32 packet = 0;  // its number in the burst, from 0
   int number = 0;  // the errno
   std::string why; // "Network is down", "index 7 is now eth9, not et1"
};

class LinkPort {
 public:
   // Packets that the kernel accepted and rejected, summed over the endpoints of a namespace.
   struct Counters {
      U64 sent = 0;
      U64 failed = 0;
   };

   virtual ~LinkPort() = default;

   // The device as rtnetlink last reported it; nothing if no device has that name.
   virtual std::optional< LinkDevice > device( LinkPlace const & place ) const = 0;

   // Whether the link is administratively up; asks the kernel. Throws Quill::ErrnoException: ENODEV when
   // there is no such device, ENOENT when there is no such namespace.
   virtual bool up( LinkPlace const & place ) = 0;
   // Sets the link up, or down; done when it returns. Throws as up() does, and the kernel's error.
   virtual void setUp( LinkPlace const & place ) = 0;
   virtual void setDown( LinkPlace const & place ) = 0;

   virtual Counters counters( std::string const & netNs ) const = 0;
   // The packets of the last burst to the device that the kernel rejected, in order of sending.
   virtual std::vector< RefusedPacket > refused( LinkPlace const & place ) const = 0;
   // Bytes of frames to the device that the kernel accepted and that have not left yet; 0 if there is
   // no such device.
   virtual U64 outstandingBytes( LinkPlace const & place ) const = 0;

   // How often notifications were lost and all devices of a namespace were read again.
   virtual U64 resyncs() const = 0;
};

} // namespace Valend
