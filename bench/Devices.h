// Kernel devices to send on, and the smallest possible sender. All of it works in the network namespace
// of the process; run the process inside scripts/sandbox.
#pragma once

#include "linux/Fd.h"
#include "platform/quill/Int.h"

#include <string>
#include <string_view>
#include <vector>

namespace Valen::Bench {

// Whether the kernel speaks IPv6 on all devices, existing ones included. With it, it sends frames of its
// own, and does more for each link that changes. Off until it is set.
enum class Ipv6 : U8 { off, on };
void ipv6Is( Ipv6 ipv6 );

// Creates a device "routes" and adds `count` IPv6 routes through it, in place of those that it had.
void makeRoutes( U32 count );

// Creates a veth pair whose one end is "e0" and sets both ends up. No effect if "e0" exists.
void makeVethPair();

// Creates `count` devices "e0", "e1" ... that drop every frame (type ifb) and sets them up. No effect
// if "e0" exists.
void makeDropDevices( U32 count );

// Creates `count` names "ns0", "ns1" ... in /run/netns, all for the process's own namespace.
void makeNamespaceNames( U32 count );

// The kernel's index of the device. Throws Quill::ErrnoException if the device does not exist.
U32 deviceIndex( std::string const & deviceName );

// A frame of `bytes` bytes with an EtherType that no protocol uses.
std::string frame( std::size_t bytes );

// The least that a sender must do: one sendto on a packet socket.
class BareSender {
 public:
   BareSender();
   // Throws Quill::ErrnoException if the kernel rejects the frame.
   void send( std::string_view frame, U32 ifIndex ) const;

 private:
   Linux::Fd socket_;
};

} // namespace Valen::Bench
