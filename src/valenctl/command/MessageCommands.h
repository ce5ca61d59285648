// Publishing frames, which `messages add` and `frame --queue` share.
#pragma once

#include "valenctl/text/Exit.h"

#include <string>
#include <vector>

namespace Valenctl {

class Session;

// Frames to queue for an interface under an agent's name, each in hexadecimal.
struct Publication {
   std::string agent;
   std::string interface;
   std::vector< std::string > frames;
};

// How long published frames stay: until they are withdrawn, or at most as long as the connection.
enum class Lifetime { kept, connection };

// Queues the frames, replacing earlier ones of this agent and interface, and prints which of them the
// device cannot send. Throws what Varlink::Client throws.
Exit publish( Session & session, Publication const & publication, Lifetime lifetime );

} // namespace Valenctl
