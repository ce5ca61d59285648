// Whether the frames that are configured can be the goodbyes that they are meant to be, as far as valend knows their
// protocols.
#pragma once

#include <string>
#include <string_view>

namespace Settings {

// What is probably a mistake: "lldp, malformed: a TLV goes beyond the end", or "lldp, chassis 02:00:00:00:00:01, port
// eth0: says ttl 120; not a goodbye". Empty for a goodbye, and for a frame of a protocol that valend does not know.
std::string doubtAbout( std::string_view frame );

} // namespace Settings
