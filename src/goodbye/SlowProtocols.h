// The slow protocols of IEEE 802.3, annex 57A: link OAM (802.3, clause 57) and LACP (802.1AX).
#pragma once

#include "goodbye/Layers.h"

namespace Goodbye {

struct OamDyingGasp {
   Mac source;
   bool active = true; // active mode; a passive end does not start the discovery
   U16 revision = 0;   // of the local information
};

// An Information OAMPDU whose flags are dying gasp and discovery complete.
Frame oamDyingGasp( OamDyingGasp const & gasp );

struct LacpGoodbye {
   Mac source;
   U16 systemPriority = 65535;
   Mac system;
   U16 key = 1;
   U16 portPriority = 255;
   U16 port = 1;
   bool active = true;
   bool shortTimeout = false;
};

// An LACPDU whose actor is aggregatable, but not in sync, not collecting and not distributing.
Frame lacpGoodbye( LacpGoodbye const & goodbye );

} // namespace Goodbye
