#include "valenctl/command/Command.h"

#include "valenctl/frame/FrameSender.h"

namespace Valenctl {

Exit Command::runForHosts( HostSession const & ) {
   throw UsageError(
      "this command does not work through a database: run it on the host, which it asks at "
      "valend's socket, without --database; status, history, shutdown, enable, watch and wait "
      "work" );
}

} // namespace Valenctl
