#include "valenctl/Options.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace Valenctl {

namespace {

constexpr char const * footer = R"(
Exit status: 0 done
             1 refused: the agent says why
             2 a wrong command or option
             3 no agent answers
             4 the agent did not answer in time

Data goes to standard output, everything else to standard error.)";

using Command = Options::Command;

CLI::App * command( CLI::App & parent, Options & options, Command which, char const * name,
                    char const * description ) {
   auto * const app = parent.add_subcommand( name, description );
   app->callback( [ app, &options, which ] {
      if ( app->get_subcommands().empty() ) { // it runs after those of its own commands
         options.command = which;
      }
   } );
   app->fallthrough(); // --socket may stand behind the command too
   return app;
}

void addLinks( CLI::App & app, Options & options ) {
   auto * const shutdown =
      command( app, options, Command::shutdown, "shutdown",
               "Shut an interface down: its frames go out, the link is held for the configured "
               "time, then it goes down. Returns when the shutdown is under way" );
   shutdown->add_option( "INTERFACE", options.interface, "Its configured name" )->required();
   shutdown->add_flag( "--wait", options.wait, "Return when the link is down, and show each step" );
   auto * const enable = command( app, options, Command::enable, "enable",
                                  "Set an interface's link up, or call its shutdown off" );
   enable->add_option( "INTERFACE", options.interface, "Its configured name" )->required();
}

void addStatus( CLI::App & app, Options & options ) {
   auto * const status = command( app, options, Command::status, "status",
                                  "Show the interfaces: whether each is ready, or why not" );
   status->add_option( "INTERFACE", options.interface, "Only this one" );
   status->add_flag( "--json", options.json, "As JSON" );
   auto * const history =
      command( app, options, Command::history, "history", "List the shutdowns so far, as JSON" );
   history->add_option( "INTERFACE", options.interface, "Only this one's" );
   auto * const show = command( app, options, Command::show, "show",
                                "Show what stands at a path of the state store, as JSON" );
   show->add_option( "PATH", options.path,
                     "Such as status, config/agents or interface/config; nothing is the whole" );
}

void addTrace( CLI::App & app, Options & options ) {
   auto * const trace = command( app, options, Command::trace, "trace",
                                 "Show the newest lines of the agent's trace" );
   trace->add_option( "--lines", options.lines, "How many" )->capture_default_str();
   trace->require_subcommand( 0, 1 );
   auto * const levels = command( *trace, options, Command::traceLevels, "levels",
                                  "Tell which units are traced at which levels, or set it" );
   levels->add_option( "LEVELS", options.levels, "Such as \"ConfigSm/0-1,Intf*/0\"" );
   command( *trace, options, Command::traceFollow, "follow", "Show lines as they come" );
   auto * const dump = command( *trace, options, Command::traceDump, "dump",
                                "Show all lines of a ring file, also of an agent that is dead" );
   dump->add_option( "--file", options.file, "The file that valend --trace-ring named" )
      ->required();
}

void addConfig( CLI::App & app, Options & options ) {
   auto * const config = app.add_subcommand( "config", "Check and show the configuration" );
   config->fallthrough();
   config->require_subcommand( 1 );
   auto * const check =
      command( *config, options, Command::configCheck, "check",
               "Say what is wrong with a configuration and its drop-ins; needs no agent" );
   check->add_option( "FILE", options.file,
                      "The main file; without it /etc/valen/valen.yaml. - is standard input" );
   auto * const show =
      command( *config, options, Command::configShow, "show",
               "Show what is in force, and from which file and line each item came" );
   auto * const reload = command( app, options, Command::reload, "reload",
                                  "Have the agent read its configuration again, and show what "
                                  "changed; one that is refused changes nothing" );
   for ( auto * const each : { check, show, reload } ) {
      each->add_flag( "--json", options.json, "As JSON" );
   }
}

} // namespace

std::optional< Options > parseOptions( int argc, char const * const * argv, Exit & exit ) {
   Options options;
   CLI::App app( "valenctl: talks to valend, the agent of Valen", "valenctl" );
   app.footer( footer );
   app.require_subcommand( 1 );
   app.add_option( "--socket", options.socket, "Where the agent listens" )
      ->capture_default_str()
      ->take_last(); // a script's own default can be overruled behind it
   app.add_option( "--timeout", options.timeoutSeconds,
                   "Seconds to wait for an answer; 0 is for ever" )
      ->capture_default_str()
      ->check( CLI::Range( 0.0, 86400.0 ) );
   addLinks( app, options );
   addStatus( app, options );
   addTrace( app, options );
   addConfig( app, options );
   addFrame( app, options.frame )->callback( [ &options ] { options.command = Command::frame; } );
   try {
      app.parse( argc, argv );
   } catch ( CLI::ParseError const & e ) {
      exit = app.exit( e, std::cout, std::cerr ) == 0 ? Exit::done : Exit::usage;
      return std::nullopt;
   }
   return options;
}

} // namespace Valenctl
