// Which speakers' goodbyes are among frames.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Valend {

struct SentGoodbye {
   std::string protocol; // "lldp"
   std::string
      speaker; // who said goodbye: "chassis 02:00:00:00:00:01, port eth0"; empty if valend cannot tell
   bool operator==( SentGoodbye const & ) const = default;
};

// The goodbyes that are listed of an agent's frames.
inline constexpr std::size_t mostGoodbyes = 16;

// Those among these frames, each speaker once, in their order; not more than mostGoodbyes. Frames that are no goodbyes of
// a protocol that valend knows are left out.
std::vector< SentGoodbye > goodbyesAmong( std::vector< std::string_view > const & frames );

// Who says goodbye with this frame; empty if valend cannot tell.
std::string speakerName( std::string_view goodbye );

} // namespace Valend
