// What the link controller needs from the kernel: devices by name, links up and down, and what happened
// to the frames. Implemented by KernelLinks, and by a fake in tests. No function waits for the kernel.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Int.h"

#include <functional>
#include <memory>
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

enum class LinkChange : U8 { up, down };

// What became of a requested change.
struct LinkAnswer {
   int error = 0;        // errno; 0 when the link is in the requested state
   std::string why;      // of the error
   bool changed = false; // it was in the other state before

   // Whether there is no such device, or no such namespace.
   bool missing() const noexcept;
};

// A change that was requested. Its destruction drops the change if that has not begun, and the answer.
class LinkRequest {
 public:
   virtual ~LinkRequest() = default;

   // Whether the kernel is changing the link, or has done so, and the answer is still to come.
   virtual bool begun() const = 0;
   // Drops a change that has not begun, and returns whether that is so.
   virtual bool withdraw() = 0;
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

   // Whether the link is administratively up, at this moment: asks the kernel. Throws
   // Quill::ErrnoException: ENODEV when there is no such device.
   virtual bool up( LinkPlace const & place ) = 0;
   // Sets the link up, or down, in a while: the change with the earliest deadline comes first. While each takes
   // long, the one with the latest comes in turn with it.
   //   done   called once, from the loop, not before this has returned
   virtual std::unique_ptr< LinkRequest >
   request( LinkPlace const & place, LinkChange change, Gantry::Time deadline,
            std::function< void( LinkAnswer const & answer ) > done ) = 0;
   // Drops the changes that have not begun, and those that are requested from now on, without an answer.
   virtual void stop() = 0;

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
