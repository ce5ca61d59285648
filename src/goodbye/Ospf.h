// OSPF version 2, RFC 2328.
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

struct OspfGoodbye {
   Mac source;
   Ipv4Prefix address; // of the interface; neighbors compare the mask with theirs
   Ipv4 router;        // its id
   Ipv4 area;
   // Neighbors drop a Hello whose intervals (in seconds) or area type differ from theirs.
   U16 helloInterval = 10;
   U32 deadInterval = 40;
   bool stub = false;
};

// A Hello without neighbors, designated router or authentication.
Frame ospfGoodbye( OspfGoodbye const & goodbye );

} // namespace Goodbye
