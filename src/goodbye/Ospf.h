// OSPF version 2, RFC 2328.
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

struct OspfGoodbye {
   Mac source;
   Ipv4Prefix address; // the interface's, whose mask neighbours compare with theirs
   Ipv4 router;        // its id
   Ipv4 area;
   // Neighbours drop a Hello whose intervals, in seconds, or area type are not theirs.
   U16 helloInterval = 10;
   U32 deadInterval = 40;
   bool stub = false;
};

// A Hello that lists no neighbours and no designated router, without authentication.
Frame ospfGoodbye( OspfGoodbye const & goodbye );

} // namespace Goodbye
