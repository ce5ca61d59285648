// The daemon: all its parts, in the order of construction.
#pragma once

#include "agent/RunnabilitySm.h"
#include "linux/Capabilities.h"
#include "linux/NetNsWatcher.h"
#include "linux/PacketEndpoint.h"
#include "valend/Options.h"
#include "valend/api/Api.h"
#include "valend/base/Conditions.h"
#include "valend/base/DescriptorLimit.h"
#include "valend/base/LogCondition.h"
#include "valend/base/Notify.h"
#include "valend/base/StateDirectory.h"
#include "valend/base/Watchdog.h"
#include "valend/configuration/Configurator.h"
#include "valend/configuration/DatabaseLayer.h"
#include "valend/configuration/LastConfiguration.h"
#include "valend/configuration/LearnedFrames.h"
#include "valend/configuration/PublishedFile.h"
#include "valend/database/DatabaseClient.h"
#include "valend/database/Requests.h"
#include "valend/kernel/KernelLinks.h"
#include "valend/report/Metrics.h"
#include "valend/report/MetricsFile.h"
#include "valend/report/ReadinessLoss.h"
#include "valend/speakers/Speakers.h"
#include "varlink/Server.h"

namespace Valend {

class Daemon {
 public:
   // Applies `read`, which has no errors, and starts the library. Throws Quill::ErrnoException when the
   // process lacks a privilege, a file or a socket that it needs.
   //   output     of the log; outlives this
   //   rejected   the errors of `options.config`, if `read` is not from it but the last valid configuration
   Daemon( Settings::ConfigResult const & read,
           std::vector< Settings::ConfigError > const & rejected, Options const & options,
           Valen::Linux::StandardError & output );
   // Sends no frames and leaves all links unchanged.
   ~Daemon();
   Daemon( Daemon const & ) = delete;
   Daemon & operator=( Daemon const & ) = delete;

   // Runs until SIGTERM or SIGINT. On SIGHUP it reads the configuration again and applies what differs,
   // and opens the trace file again; a configuration that is rejected changes nothing.
   void run();

 private:
   static Valen::Linux::NetNsDirectories
   netNsDirectoriesOf( Settings::ProcessConfig const & process );

   Configurator::Steps stepsTo( PlanPtr const & plan );
   Slices::Step followStep( std::set< std::string > const & netNss );
   Slices::Step leaveStep( std::set< std::string > const & netNss );
   std::vector< Publications::Message > publishedMessages();
   static std::string capabilityError( Valen::Linux::NetNsUse use );
   Slices::Step placesStep( PlanPtr const & plan );
   DatabaseClient::Reader databaseReader();
   std::optional< Metrics::Database > databaseMetrics() const;
   void resumeDatabase();
   void connectDatabase();
   U64 maxDelayMs() const;
   void resumeShutdowns();
   void reload( std::function< void( Reloaded const & ) > const & done );
   void reloadEnded( Configurator::Outcome const & outcome,
                     std::function< void( Reloaded const & ) > const & done );
   void hangup();
   void stop( char const * signal );

   Settings::ProcessConfig const process_;
   StateDirectory stateDirectory_; // before all others: it decides which process is the daemon
   Valen::Linux::EventLoop loop_;
   Valen::Linux::NetNsDirectories const netNsDirectories_;
   TraceHub trace_;
   Valen::Linux::PacketEndpointProvider endpoints_;
   Conditions conditions_;
   LogCondition logCondition_;
   Condition capabilities_;
   UnsentNotifications unsentNotifications_;
   DescriptorLimit descriptorLimit_;
   KernelLinks links_;
   Speakers speakers_;
   U64 generation_ = 0; // of the places that have filters
   Store store_;
   // After the loop has ended, it waits for the disk for a bounded time.
   Valen::Linux::Worker fileWorker_;
   Valen::Linux::Worker metricsWorker_; // whose directory is not valend's
   Feeder feeder_;
   PublishedFile publishedFile_;
   Publications publications_;
   LearnedFrames learnedFrames_;
   FaultLog faults_;
   Journal journal_;
   LinkController controller_;
   StatusReport report_;
   DaemonStatus const daemonStatus_;
   SpeakersReport speakersReport_;
   ReadinessLoss readinessLoss_;
   Metrics metrics_;
   MetricsFile metricsFile_;
   Valen::Linux::NetNsWatcher netNsWatcher_;
   LastConfiguration lastConfiguration_;
   std::set< std::string > netNss_;         // whose devices are watched
   std::vector< std::string > readyBefore_; // interfaces, before the last reload
   U64 lastReload_ = 0;                     // whose losses of readiness are logged
   Configurator configurator_;
   DatabaseFile databaseFile_;
   DatabaseLayer databaseLayer_;
   DatabaseClient database_;
   RequestsFile requestsFile_;
   Requests requests_;
   Access access_;
   Api api_;
   Varlink::Server server_;
   Watchdog watchdog_;
   Quill::Ptr< Valen::RunnabilitySm > library_; // destroyed first
};

} // namespace Valend
