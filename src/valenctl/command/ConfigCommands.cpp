// config check, config show and reload.
#include "settings/ConfigFiles.h"
#include "settings/Counted.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/ConfigText.h"

#include <CLI/CLI.hpp>
#include <ostream>

namespace Valenctl {

namespace {

class ConfigCheck final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "FILE", file_, "Main file; - is standard input" )
         ->type_name( "" )
         ->capture_default_str();
      app.add_option( "--drop-in", dropIn_,
                      "Check this file too, as if it were a drop-in of FILE, in the directory "
                      "conf.d beside it" )
         ->type_name( "DROP-IN" );
   }

   Exit run( Session & session ) override {
      auto const result = Settings::readConfig( file_, dropIn_ );
      if ( session.json() ) {
         session.out() << indented( checkJson( result ) ) << '\n';
         return result.errors.empty() ? Exit::done : Exit::failed;
      }
      for ( auto const & warning : result.warnings ) {
         session.err() << "warning: " << warning.message() << '\n';
      }
      if ( result.errors.empty() ) {
         session.out() << file_ << ( dropIn_.empty() ? "" : " with " + dropIn_ ) << ": OK, "
                       << result.config.summary() << '\n';
      } else {
         for ( auto const & error : result.errors ) {
            session.err() << error.message() << '\n';
         }
      }
      return result.errors.empty() ? Exit::done : Exit::failed;
   }

 private:
   std::string file_ = Settings::defaultFile;
   std::string dropIn_;
};

class ConfigShow final : public Command {
 public:
   Exit run( Session & session ) override {
      auto const answer = session.call( "Config" );
      session.print( answer, configText( answer ) );
      return Exit::done;
   }
};

class Reload final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_flag( "--allow-not-ready", allowNotReady_,
                    "Exit with 0 even if interfaces are no longer ready" );
   }

   Exit run( Session & session ) override {
      try {
         auto const answer = session.call( "Reload" );
         printChanges( session, answer );
         bool const allReady = listField( answer, "notReady" ).empty();
         return allReady || allowNotReady_ ? Exit::done : Exit::notReady;
      } catch ( Varlink::Refused const & e ) {
         if ( session.json() || !e.parameters().contains( "errors" ) ) {
            throw; // the caller prints it; without "errors", the configuration is not the reason
         }
         printErrors( session, e );
         return Exit::failed;
      }
   }

 private:
   static void printChanges( Session & session, Json const & answer ) {
      auto const changes = textsField( answer, "changed" );
      std::string lines;
      for ( auto const & change : changes ) {
         lines += change + "\n";
      }
      session.print( answer, lines );
      if ( session.json() ) {
         return;
      }
      for ( auto const & warning : textsField( answer, "warnings" ) ) {
         session.err() << "warning: " << warning << '\n';
      }
      auto const notReady = listField( answer, "notReady" );
      for ( auto const & each : notReady ) {
         session.err() << textField( each, "interface" )
                       << ": no longer ready: " << textField( each, "why" ) << '\n';
      }
      session.err() << "reloaded: " << Settings::counted( changes.size(), "change" )
                    << ( notReady.empty() ? ""
                                          : "; no longer ready: " +
                                               Settings::counted( notReady.size(), "interface" ) )
                    << '\n';
   }

   static void printErrors( Session & session, Varlink::Refused const & rejection ) {
      for ( auto const & error : textsField( rejection.parameters(), "errors" ) ) {
         session.err() << error << '\n';
      }
      session.err() << "valenctl: " << rejection.what() << '\n';
   }

   bool allowNotReady_ = false;
};

} // namespace

std::vector< CommandRow > configCommands() {
   return {
      { "config", "Check and show the configuration", {} },
      { "config check", "Check a configuration and its drop-ins; does not need valend",
        make< ConfigCheck > },
      { "config show", "Show the active configuration and where each item comes from",
        make< ConfigShow > },
      { "reload", "Reload the configuration and show what changed", make< Reload >,
        "An invalid configuration is rejected and changes nothing. Interfaces that are no longer "
        "ready are listed, and the exit status is 5." },
   };
}

} // namespace Valenctl
