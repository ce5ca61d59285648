// lldpd, the LLDP agent that runs on many machines. A frame can only replace what it sent if it has the
// same ids.
#pragma once

#include "goodbye/Lldp.h"

#include <stdexcept>

namespace Valenctl {

// There are no ids to take from lldpd; what() says why.
class NoLldpd : public std::runtime_error {
 public:
   using runtime_error::runtime_error;
};

struct LldpIds {
   Goodbye::LldpId chassis;
   Goodbye::LldpId port;
};

// The ids that lldpd sends on `device`, asked with its client lldpcli. `socket` is lldpd's; empty for
// the one that lldpcli uses by itself. Waits at most two seconds. Throws NoLldpd.
LldpIds lldpdIds( std::string const & device, std::string const & socket );

// The ids in what lldpcli printed about one device, as JSON. Throws NoLldpd.
LldpIds idsIn( std::string const & answer, std::string const & device );

} // namespace Valenctl
