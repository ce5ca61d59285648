// valenctl's command line.
#pragma once

#include "valenctl/FrameCommand.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Valenctl {

// What the process ends with; each has one meaning.
enum class Exit : int {
   done = 0,
   refused = 1,  // the agent refused, or what was asked did not happen
   usage = 2,    // a wrong command or option
   noAgent = 3,  // nobody answers at the socket
   timedOut = 4, // the agent did not answer in time, or what was waited for did not come
};

struct Options {
   enum class Command : std::uint8_t {
      shutdown,
      enable,
      status,
      list,
      watch,
      history,
      explain,
      wait,
      messagesList,
      messagesAdd,
      messagesRemove,
      trace,
      traceLevels,
      traceFollow,
      traceDump,
      show,
      configCheck,
      configShow,
      metrics,
      reload,
      frame,
   };

   Command command = Command::status;
   std::string socket = "/run/valen/valend.sock";
   double timeoutSeconds = 10;
   bool json = false;
   std::string interface;                 // of commands about one; empty: all
   std::vector< std::string > interfaces; // of those about several; empty: all, or the VRF's
   std::string vrf;
   std::string device;
   bool ready = false;
   bool quiet = false;
   bool all = false; // said in so many words, where nothing is not enough
   bool wait = false;
   std::string until; // what `wait` waits for
   std::string agent;
   std::vector< std::string > frames; // "-": those on standard input
   bool whileConnected = false;       // keep them published only so long
   std::string levels;                // empty: only tell
   unsigned lines = 100;
   std::string file; // of a trace ring, or of the configuration; empty: the usual
   std::string path; // in the store
   bool follow = false;
   FrameOptions frame;
};

// Takes the command line apart. Nothing, with `exit` set, when the process is to end: help was
// asked for and printed, or something is wrong and said so.
std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit );

} // namespace Valenctl
