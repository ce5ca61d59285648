// shutdown, enable and goodbye.
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/InterfaceSelection.h"
#include "valenctl/command/Session.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/frame/FrameSender.h"
#include "valenctl/text/ShutdownText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <ostream>

namespace Valenctl {

namespace {

void addQuiet( CLI::App & app, bool & quiet ) {
   app.add_flag( "--quiet", quiet, "Print errors only" );
}

void addReason( CLI::App & app, std::optional< std::string > & reason ) {
   app.add_option( "--reason", reason, "Why, for the history and the log; at most 255 bytes" )
      ->type_name( "TEXT" );
}

// What is selected, and why.
Json parametersOf( InterfaceSelection const & selection,
                   std::optional< std::string > const & reason ) {
   auto parameters = selection.parameters();
   if ( reason ) {
      parameters[ "reason" ] = *reason;
   }
   return parameters;
}

// So that a forgotten option does not mean all hosts.
void requireHosts( HostSession const & session ) {
   if ( !session.chosen ) {
      throw UsageError( "--host is required with --database: the names of hosts, or all" );
   }
}

class Shutdown final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      selection_.addTo( app );
      app.add_flag( "--wait", wait_, "Return when all links are down; print each step" );
      app.add_option( "--delay", delayMs_,
                      "Hold the links for this long, instead of the configured time" )
         ->type_name( "MS" )
         ->check( CLI::NonNegativeNumber.description( "" ) );
      addReason( app, reason_ );
      addQuiet( app, quiet_ );
   }

   Exit run( Session & session ) override {
      auto exit = Exit::done;
      auto parameters = parametersOf( selection_, reason_ );
      if ( delayMs_ ) {
         parameters[ "delayMs" ] = *delayMs_;
      }
      auto const report = [ & ]( Json const & answer ) {
         exit = std::max( exit, printed( session, answer ) );
         return true;
      };
      if ( wait_ ) {
         session.client().callMore( "ShutdownMany", parameters, report );
      } else {
         report( session.call( "ShutdownMany", parameters ) );
      }
      return exit;
   }

   Exit runForHosts( HostSession const & session ) override {
      requireHosts( session );
      return requestLinks( session, selection_.parameters(), { false, reason_, delayMs_, wait_ },
                           quiet_ );
   }

 private:
   // Prints the steps of one answer, and extends the timeout for the next one by the longest delay.
   Exit printed( Session & session, Json const & answer ) const {
      auto exit = Exit::done;
      std::uint64_t longestDelay = 0;
      for ( auto const & step : listField( answer, "steps" ) ) {
         printStep( session, step );
         exit = stepSucceeded( step ) ? exit : Exit::failed;
         longestDelay = std::max( longestDelay, numberField( step, "delayMs" ) );
      }
      if ( longestDelay && session.timeout().count() ) {
         session.answerTimeoutIs( session.timeout() + std::chrono::milliseconds( longestDelay ) );
      }
      auto const pending = numberField( answer, "pending" );
      if ( session.terminal().err && wait_ && !session.json() && !quiet_ && pending ) {
         session.err() << pending << " not down yet" << std::flush; // the next step overwrites it
      }
      return exit;
   }

   void printStep( Session & session, Json const & step ) const {
      if ( session.json() ) {
         session.printLine( step );
      } else if ( !quiet_ || !stepSucceeded( step ) ) {
         session.err() << ( session.terminal().err ? "\r\x1b[K" : "" ) << stepText( step )
                       << std::endl;
      }
   }

   InterfaceSelection selection_;
   std::optional< std::int64_t > delayMs_;
   std::optional< std::string > reason_;
   bool wait_ = false;
   bool quiet_ = false;
};

class Enable final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      selection_.addTo( app );
      addQuiet( app, quiet_ );
   }

   Exit run( Session & session ) override {
      auto const answer = session.call( "EnableMany", selection_.parameters() );
      auto exit = Exit::done;
      for ( auto const & result : listField( answer, "results" ) ) {
         if ( textField( result, "result" ) == "failed" ) {
            exit = Exit::failed;
            session.err() << "valenctl: " << enableText( result ) << '\n';
         } else if ( !session.json() && !quiet_ ) {
            session.err() << enableText( result ) << '\n';
         }
      }
      session.print( answer, "" );
      return exit;
   }

   Exit runForHosts( HostSession const & session ) override {
      requireHosts( session );
      return requestLinks( session, selection_.parameters(), { .up = true }, quiet_ );
   }

 private:
   InterfaceSelection selection_;
   bool quiet_ = false;
};

class Goodbye final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      selection_.addTo( app );
      addReason( app, reason_ );
      addQuiet( app, quiet_ );
   }

   Exit run( Session & session ) override {
      auto const answer = session.call( "Goodbye", parametersOf( selection_, reason_ ) );
      auto exit = Exit::done;
      for ( auto const & result : listField( answer, "results" ) ) {
         if ( failed( result ) ) {
            exit = Exit::failed;
            session.err() << "valenctl: " << goodbyeText( result ) << '\n';
         } else if ( !session.json() && !quiet_ ) {
            session.err() << goodbyeText( result ) << '\n';
         }
      }
      session.print( answer, "" );
      return exit;
   }

 private:
   // An interface that has nothing to say is an error only if it was asked for by its name.
   bool failed( Json const & result ) const {
      auto const what = textField( result, "result" );
      return what == "failed" || ( what == "not-ready" && selection_.named() );
   }

   InterfaceSelection selection_;
   std::optional< std::string > reason_;
   bool quiet_ = false;
};

} // namespace

std::vector< CommandRow > linkCommands() {
   return {
      { "shutdown", "Shut interfaces down: send their frames, hold the links, then set them down",
        make< Shutdown >,
        "Returns when all shutdowns have started; with --wait, when all links are down." },
      { "enable", "Set links up, or abort shutdowns in progress", make< Enable > },
      { "goodbye", "Send the frames of interfaces now; their links stay up", make< Goodbye >,
        "Returns when the frames have left. For a link that is then set down by another program." },
   };
}

} // namespace Valenctl
