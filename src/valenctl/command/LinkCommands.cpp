// shutdown and enable.
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/InterfaceSelection.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/ShutdownText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>

namespace Valenctl {

namespace {

void addQuiet( CLI::App & app, bool & quiet ) {
   app.add_flag( "--quiet", quiet, "Print errors only" );
}

class Shutdown final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      selection_.addTo( app );
      app.add_flag( "--wait", wait_, "Return when all links are down; print each step" );
      addQuiet( app, quiet_ );
   }

   Exit run( Session & session ) override {
      auto exit = Exit::done;
      auto const report = [ & ]( Json const & answer ) {
         exit = std::max( exit, printed( session, answer ) );
         return true;
      };
      if ( wait_ ) {
         session.client().callMore( "ShutdownMany", selection_.parameters(), report );
      } else {
         report( session.call( "ShutdownMany", selection_.parameters() ) );
      }
      return exit;
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

 private:
   InterfaceSelection selection_;
   bool quiet_ = false;
};

} // namespace

std::vector< CommandRow > linkCommands() {
   return {
      { "shutdown", "Shut interfaces down: send their frames, hold the links, then set them down",
        make< Shutdown >,
        "Returns when all shutdowns have started; with --wait, when all links are down." },
      { "enable", "Set links up, or abort shutdowns in progress", make< Enable > },
   };
}

} // namespace Valenctl
