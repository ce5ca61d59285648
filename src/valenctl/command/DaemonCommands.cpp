// rescan, metrics, memory and show.
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/ReportText.h"

#include <CLI/CLI.hpp>
#include <ostream>

namespace Valenctl {

namespace {

class Rescan final : public Command {
 public:
   Exit run( Session & session ) override {
      session.print( session.call( "Rescan" ), "" );
      return Exit::done;
   }
};

class Metrics final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_flag( "--openmetrics", openMetrics_, "Print OpenMetrics text" );
   }

   Exit run( Session & session ) override {
      auto const answer = session.call(
         "Metrics", openMetrics_ ? Json{ { "format", "openmetrics" } } : Json::object() );
      session.print( answer, textField( answer, "text" ) );
      return Exit::done;
   }

 private:
   bool openMetrics_ = false;
};

class Memory final : public Command {
 public:
   Exit run( Session & session ) override {
      auto const answer = session.call( "Memory" );
      session.print( answer, memoryText( answer ) );
      return Exit::done;
   }
};

class Show final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "PATH", path_, "Such as status, config/agents or interface/config" )
         ->type_name( "" );
      app.add_flag( "--watch", watch_, "Print it again whenever it changes, on one line each" );
   }

   Exit run( Session & session ) override {
      Json const parameters{ { "path", path_ } };
      if ( !watch_ ) {
         auto const answer = session.call( "Show", parameters );
         session.out() << indented( anyField( answer, "value" ) ) << '\n';
         return Exit::done;
      }
      session.answerTimeoutIs( std::chrono::milliseconds( 0 ) ); // the next change may be far away
      session.client().callMore( "Watch", parameters, [ & ]( Json const & answer ) {
         session.printLine( anyField( answer, "value" ) );
         return session.out().good();
      } );
      return Exit::done;
   }

 private:
   std::string path_; // empty: all of the store
   bool watch_ = false;
};

} // namespace

std::vector< CommandRow > daemonCommands() {
   return {
      { "rescan", "Have valend look at the network namespaces again", make< Rescan > },
      { "metrics", "Print counters and gauges in the Prometheus text format", make< Metrics > },
      { "memory", "Show how many objects of each type exist, and their bytes", make< Memory > },
      { "show", "Print the state store below PATH as JSON (default: all of it)", make< Show > },
   };
}

} // namespace Valenctl
