// The agent process: everything it is made of, in the order in which it is made.
#pragma once

#include "agent/RunnabilitySm.h"
#include "linux/NetNsWatcher.h"
#include "linux/PacketEndpoint.h"
#include "valend/AgentApi.h"
#include "valend/ApiServer.h"
#include "valend/Configurator.h"
#include "valend/KeptFrames.h"
#include "valend/Metrics.h"
#include "valend/MetricsFile.h"
#include "valend/Options.h"
#include "valend/Watchdog.h"

namespace Valend {

class Agent {
 public:
   // Puts what was read from `options.config` in force, which has no errors, and starts the
   // library. Throws Quill::ErrnoException when the process cannot have what it needs.
   Agent( ValenConfig::ConfigResult const & read, Options const & options );
   // Sends nothing and leaves all links as they are.
   ~Agent();
   Agent( Agent const & ) = delete;
   Agent & operator=( Agent const & ) = delete;

   // Runs until SIGTERM or SIGINT. On SIGHUP it reads the configuration again and puts what differs
   // in force; one that is refused changes nothing.
   void run();

 private:
   static Valen::Linux::NetNsFolders foldersOf( ProcessConfig const & process );

   void configIs( Config const & config );
   void finishWhatWasBegun();
   void reload();
   void stop( char const * signal );

   ProcessConfig const process_;
   Valen::Linux::EventLoop loop_;
   Valen::Linux::NetNsFolders const folders_;
   TraceHub trace_;
   Valen::Linux::PacketEndpointProvider endpoints_;
   KernelLinks links_;
   Store store_;
   Feeder feeder_;
   KeptFrames kept_;
   Publications publications_;
   FaultLog faults_;
   Journal journal_;
   LinkController controller_;
   MetricsFile metricsFile_;
   Valen::Linux::NetNsWatcher netNsWatcher_;
   Configurator configurator_;
   ApiAccess access_;
   AgentApi api_;
   ApiServer server_;
   Watchdog watchdog_;
   Quill::Ptr< Valen::RunnabilitySm > library_; // goes first
};

} // namespace Valend
