#include "valend/Options.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Trace.h"
#include "valend/base/Version.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace Valend {

namespace {

constexpr char const * footer = R"(
Holds the administrative shutdown of network interfaces back until the goodbye
frames that are queued for them are out. The configuration's format is explained
in examples/valen.yaml; valenctl is the operator's command.

The agent stops on SIGTERM and SIGINT; it then sends nothing and leaves all links
as they are. On SIGHUP it reads the configuration again and puts what differs in
force; a configuration that is refused changes nothing.

Exit status: 0 stopped as asked, or the configuration is in order
             1 could not start
             2 a wrong option
             78 the configuration is refused)";

std::string checkLevels( std::string const & levels ) {
   auto const inForce = Quill::traceLevels();
   try { // setting them is how they are checked
      Quill::traceLevelsIs( levels );
      Quill::traceLevelsIs( inForce );
      return std::string();
   } catch ( Quill::RangeException const & e ) {
      return e.text();
   }
}

} // namespace

std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit ) {
   Options options;
   auto & process = options.process;
   CLI::App app( "valend: the agent of Valen", "valend" );
   app.footer( footer );
   app.set_version_flag( "--version", std::string( "valend " ) + version );
   app.add_option( "--config", options.config, "The configuration file; - is standard input" )
      ->capture_default_str();
   app.add_flag( "--check", options.check, "Only check the configuration" );
   app.add_option( "--socket", process.socket,
                   std::string( "Where valenctl finds the agent [" ) + Settings::defaultSocket +
                      "]" );
   app.add_option( "--read-group", options.readers,
                   "The group, by name or number, whose members may look" )
      ->capture_default_str();
   app.add_option( "--admin-group", options.changers,
                   "The group whose members may shut down, enable and publish, as root may" )
      ->capture_default_str();
   app.add_option( "--netns-folder", process.netNsFolder,
                   "A folder of named network namespaces, besides /run/netns" );
   app.add_option( "--state-directory", process.stateDirectory,
                   "Where shutdowns are written down [$STATE_DIRECTORY, else /var/lib/valen]" );
   app.add_option( "--metrics-file", process.metricsFile,
                   "Keep the metrics in this file, for a collector of such files (NAME.prom)" );
   app.add_option( "--trace", process.traceLevels,
                   "Trace to standard error, at levels such as ConfigSm/0-1,Intf*/0" )
      ->check( checkLevels );
   app.add_option( "--trace-file", process.traceFile, "Trace to this file instead" );
   app.add_option( "--trace-ring", process.traceRing,
                   "Keep the trace ring in this file, to be read after a crash" );
   try {
      app.parse( argc, argv );
   } catch ( CLI::ParseError const & e ) {
      exit = app.exit( e, std::cout, std::cerr ) == 0 ? Exit::done : Exit::usage;
      return std::nullopt;
   }
   return options;
}

} // namespace Valend
