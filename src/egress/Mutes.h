// The muted speakers. A speaker is muted from its goodbye to the end of the shutdown: the filter in the kernel
// (Egress.bpf.c) drops its frames, so that it does not take the goodbye back.
//
// Its functions never wait: each is one system call on a map.
#pragma once

#include "egress/Egress.h"
#include "linux/Fd.h"

#include <chrono>
#include <cstring>
#include <optional>
#include <string_view>

// It has no padding.
inline bool operator==( egress_speaker const & a, egress_speaker const & b ) noexcept {
   return std::memcmp( &a, &b, sizeof a ) == 0;
}

namespace Egress {

// A speaker on a device: see Speaker.h.
using Speaker = egress_speaker;

// The speaker that a frame is from; nothing if it is of no protocol that can be muted.
//   filter    the number of the namespace, as for Filters::attach
//   ifIndex   the device that the frame leaves
std::optional< Speaker > speakerOf( std::string_view frame, U32 filter, U32 ifIndex );

// The protocol: "lldp", "vrrp".
std::string_view protocolOf( Speaker const & speaker );

// Which speaker it is on its device, to find it again in another process, where the filters have other numbers.
std::string_view identityOf( Speaker const & speaker );
// That speaker; nothing if the protocol is not known, or the identity is of another length.
std::optional< Speaker > speakerOf( std::string_view protocol, U16 vlan, std::string_view identity,
                                    U32 filter, U32 ifIndex );

class Mutes {
 public:
   // The clock of the filters, CLOCK_MONOTONIC.
   using Time = std::chrono::steady_clock::time_point;

   // `map` is from Filters::mutes.
   explicit Mutes( Valen::Linux::Fd map ) : map_( std::move( map ) ) {}

   // Mutes the speaker until then, at the latest. The frames that were dropped are counted from now on. Throws
   // Quill::ErrnoException: E2BIG if EGRESS_MUTES are muted.
   void mute( Speaker const & speaker, Time until );
   // Mutes it until another time, and returns how many frames were dropped; the count starts at 0 again. No effect, and 0,
   // if it is not muted, or if the kernel cannot do it: then it ends earlier.
   U64 renew( Speaker const & speaker, Time until ) noexcept;
   // Ends it, and returns how many frames were dropped. No effect, and 0, if it is not muted.
   U64 unmute( Speaker const & speaker ) noexcept;

 private:
   Valen::Linux::Fd map_;
};

} // namespace Egress
