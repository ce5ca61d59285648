// What a frame of a speaker says. A speaker is one instance of a protocol on a device: one LLDP port, one
// virtual router, one OSPF router id.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace Derivation {

// Bytes of the greeting, and how many of the goodbye are in their place: none if they are left out.
struct Replaced {
   std::size_t at = 0;
   std::size_t bytes = 0;
   std::size_t by = 0;
   bool operator==( Replaced const & ) const = default;
};

// A frame of a speaker that was parsed whole.
struct Heard {
   std::string protocol; // "lldp": as Egress::protocolOf names it
   std::string speaker;  // who it is: "chassis 02:00:00:00:00:01, port eth0"
   std::string says;     // what neighbors learn from it: "ttl 120"; of a goodbye: "ttl 0"
   bool leaves = false;  // it is a goodbye itself
   // Without another frame, neighbors forget the speaker after this.
   std::chrono::milliseconds holdTime{};
   // Empty, or which part of all that the speaker says: some protocols need several frames for it.
   std::string part;
   std::string greeting; // the same frame, its checksums completed: may be sent again
   std::string goodbye;  // empty if the frame leaves, or if no goodbye can be derived
   std::string change;   // what the goodbye changes: "ttl 120 -> 0"
   // Where the goodbye differs from the greeting, checksums and lengths included: sorted, not overlapping.
   std::vector< Replaced > replaced;
   std::string whyNot; // why no goodbye can be derived from a valid frame: "authenticated with MD5"
};

// A frame of a known protocol that does not parse whole.
struct Malformed {
   std::string protocol;
   std::string reason; // one of Reader.h
};

} // namespace Derivation
