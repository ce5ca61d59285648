// Kernel devices to send to, and the bare way of sending. All in the namespace of the process, which
// must be one of its own (scripts/sandbox).
#pragma once

#include "linux/Fd.h"
#include "platform/quill/Int.h"

#include <string>
#include <string_view>
#include <vector>

namespace Valen::Bench {

// Makes one end "e0" of a veth pair, both ends up, unless it is there.
void makeVethPair();

// Makes `count` devices "e0", "e1" ..., all up, that drop every frame (type ifb), unless there is
// an "e0".
void makeDropDevices( U32 count );

// Makes `count` names "ns0", "ns1" ... in /run/netns, which all stand for the process's namespace.
void makeNamespaceNames( U32 count );

// The kernel's index of the device. Throws Quill::ErrnoException when there is none.
U32 deviceIndex( std::string const & deviceName );

// A frame that nobody takes, of `bytes` bytes.
std::string frame( std::size_t bytes );

// What every sender must do at least: one sendto on a packet socket.
class BareSender {
 public:
   BareSender();
   // Throws Quill::ErrnoException when the kernel does not take the frame.
   void send( std::string_view frame, U32 ifIndex ) const;

 private:
   Linux::Fd socket_;
};

} // namespace Valen::Bench
