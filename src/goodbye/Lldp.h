// IEEE 802.1AB, the Link Layer Discovery Protocol.
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

// The id of a chassis or a port. Their numbers for the types of ids differ.
struct LldpId {
   U8 subtype = 0;
   std::string value; // 1 to 255 bytes
};

struct LldpShutdown {
   Mac source;
   Mac destination = Mac( "01:80:c2:00:00:0e" ); // the nearest bridge
   LldpId chassis;
   LldpId port;
};

// Parse "mac:02:00:00:00:00:01", "name:eth0" (the interface's name) and "local:TEXT". Throw BadText.
LldpId parseLldpChassis( std::string const & text );
LldpId parseLldpPort( std::string const & text );

// An LLDPDU with a time to live of 0. Has only chassis and port, which identify the sender.
Frame lldpShutdown( LldpShutdown const & shutdown );

} // namespace Goodbye
