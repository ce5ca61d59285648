// status, list, explain, wait and history.
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/ReportText.h"
#include "valenctl/text/ShutdownText.h"
#include "valenctl/text/StatusText.h"
#include "valenctl/text/TimeText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

namespace Valenctl {

namespace {

class Status final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interface_, "Show only this interface" )->type_name( "" );
   }

   Exit run( Session & session ) override {
      auto const answer = session.call( "Status", interfaceParameter( interface_ ) );
      session.print( answer, statusText( answer, session.palette() ) );
      return Exit::done;
   }
   Exit runForHosts( HostSession const & session ) override {
      return statusOfHosts( session, interface_ );
   }

 private:
   std::string interface_; // empty: all
};

class List final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "--vrf", vrf_, "List only interfaces of this VRF" )->type_name( "VRF" );
   }

   Exit run( Session & session ) override {
      auto const parameters = vrf_.empty() ? Json::object() : Json{ { "vrf", vrf_ } };
      auto const answer = session.call( "List", parameters );
      std::string names;
      for ( auto const & name : textsField( answer, "interfaces" ) ) {
         names += name + "\n";
      }
      session.print( answer, names );
      return Exit::done;
   }

 private:
   std::string vrf_; // empty: all
};

class Explain final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interface_, "Configured name" )->type_name( "" )->required();
   }

   Exit run( Session & session ) override {
      auto const answer = session.call( "Explain", interfaceParameter( interface_ ) );
      session.print( answer, explainText( interface_, answer, session.palette() ) );
      return Exit::done;
   }

 private:
   std::string interface_;
};

class Wait final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interface_, "Configured name" )->type_name( "" )->required();
      app.add_option( "--until", until_, "State to wait for; idle: no shutdown in progress" )
         ->type_name( "ready|up|down|idle" )
         ->required()
         ->check( CLI::IsMember( { "ready", "up", "down", "idle" } ).description( "" ) );
   }

   Exit run( Session & session ) override {
      auto parameters = interfaceParameter( interface_ );
      parameters[ "until" ] = until_;
      if ( auto const timeout = session.timeout(); timeout.count() ) {
         parameters[ "timeoutMs" ] = timeout.count();
         session.answerTimeoutIs( timeout + margin ); // so that valend's own answer comes first
      }
      session.print( session.call( "Wait", parameters ), "" );
      return Exit::done;
   }
   Exit runForHosts( HostSession const & session ) override {
      return waitForHosts( session, interface_, until_ );
   }

 private:
   static constexpr std::chrono::seconds margin{ 5 };

   std::string interface_;
   std::string until_;
};

class History final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interfaces_, "Show only these interfaces" )->type_name( "" );
      app.add_option( "--last", last_, "Show only the last ones, this many" )
         ->type_name( "N" )
         ->check( CLI::NonNegativeNumber.description( "" ) );
      app.add_option( "--since", since_,
                      "Show only what was requested since: 30s, 5m, 2h or 1d ago, or a time as "
                      "printed, or local as \"2026-01-31 12:00\"" )
         ->type_name( "TIME" )
         ->check( CLI::Validator( timeProblem, "" ) );
   }

   Exit run( Session & session ) override {
      auto parameters = Json::object();
      if ( !interfaces_.empty() ) {
         parameters[ "interfaces" ] = interfaces_;
      }
      if ( last_ ) {
         parameters[ "last" ] = *last_;
      }
      if ( !since_.empty() ) {
         parameters[ "sinceMs" ] = since().count();
      }
      auto const answer = session.call( "History", parameters );
      session.print( answer, historyText( answer ) );
      return Exit::done;
   }
   Exit runForHosts( HostSession const & session ) override {
      return historyOfHosts( session, { interfaces_, last_, since() } );
   }

 private:
   std::chrono::milliseconds since() const {
      std::chrono::milliseconds const always( 0 );
      return since_.empty() ? always : std::max( always, *timeOf( since_ ) );
   }
   static std::optional< std::chrono::milliseconds > timeOf( std::string const & text ) {
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      return timeFrom( text, std::chrono::floor< std::chrono::milliseconds >( now ) );
   }
   static std::string timeProblem( std::string const & text ) {
      return timeOf( text )
                ? ""
                : "\"" + text +
                     "\" is not a time; expected 30s, 5m, 2h, 1d, \"2026-01-31 12:00\", "
                     "\"2026-01-31 12:00:00\" or 2026-01-31T12:00:00Z";
   }

   std::vector< std::string > interfaces_; // empty: all
   std::optional< std::int64_t > last_;
   std::string since_; // empty: all
};

} // namespace

std::vector< CommandRow > statusCommands() {
   return {
      { "status", "Show each interface, whether it is ready, and what needs attention",
        make< Status > },
      { "list", "List the interfaces' names, one a line", make< List > },
      { "explain", "Show what an interface needs to be ready, and what is missing",
        make< Explain > },
      { "wait", "Wait until an interface reaches a state, at most for --timeout", make< Wait > },
      { "history", "Show past shutdowns and goodbyes, oldest first", make< History > },
   };
}

} // namespace Valenctl
