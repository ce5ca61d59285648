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
             4 the agent did not answer in time, or what was waited for did not come

Data goes to standard output, everything else to standard error. Tables are coloured
on a terminal, unless NO_COLOR is set.)";

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

// An interface that must be named.
void addInterface( CLI::App & app, Options & options ) {
   app.add_option( "INTERFACE", options.interface, "Its configured name" )->required();
}

// One that may be.
void addOptionalInterface( CLI::App & app, Options & options, char const * what ) {
   app.add_option( "INTERFACE", options.interface, what );
}

// Some, or a VRF's, or all: exactly one of these.
void addSeveral( CLI::App & app, Options & options ) {
   auto * const which = app.add_option_group( "which" );
   which->add_option( "INTERFACE", options.interfaces, "Their configured names" );
   which->add_option( "--vrf", options.vrf, "All interfaces of this VRF" );
   which->add_option( "--device", options.device,
                      "The interfaces that this kernel device carries" );
   which->add_flag( "--ready", options.ready, "All interfaces whose shutdown would be held" );
   which->add_flag( "--all", options.all, "All interfaces" );
   which->require_option( 1 );
   app.add_flag( "--quiet", options.quiet, "Say nothing but what goes wrong" );
}

void addLinks( CLI::App & app, Options & options ) {
   auto * const shutdown =
      command( app, options, Command::shutdown, "shutdown",
               "Shut interfaces down: their frames go out, the links are held for the configured "
               "time, then they go down. Returns when all shutdowns are under way" );
   addSeveral( *shutdown, options );
   shutdown->add_flag( "--wait", options.wait,
                       "Return when the links are down, and show each step" );
   auto * const enable = command( app, options, Command::enable, "enable",
                                  "Set interfaces' links up, or call their shutdowns off" );
   addSeveral( *enable, options );
}

void addStatus( CLI::App & app, Options & options ) {
   auto * const status = command( app, options, Command::status, "status",
                                  "Show the interfaces: whether each is ready, or why not" );
   addOptionalInterface( *status, options, "Only this one" );
   auto * const list =
      command( app, options, Command::list, "list", "Show the interfaces' names, one a line" );
   list->add_option( "--vrf", options.vrf, "Only those of this VRF" );
   auto * const watch =
      command( app, options, Command::watch, "watch",
               "Show the status as it changes: a table on a terminal, a line a change in a pipe" );
   addOptionalInterface( *watch, options, "Only this one" );
   auto * const history =
      command( app, options, Command::history, "history", "Show the shutdowns so far" );
   addOptionalInterface( *history, options, "Only this one's" );
   addInterface( *command( app, options, Command::explain, "explain",
                           "Show what it takes for an interface to be ready, and what is missing" ),
                 options );
   auto * const wait =
      command( app, options, Command::wait, "wait",
               "Wait until an interface is ready, up or down, or has no shutdown under way (idle); "
               "no longer than --timeout" );
   addInterface( *wait, options );
   wait->add_option( "--until", options.until, "ready, up, down or idle" )
      ->required()
      ->check( CLI::IsMember( { "ready", "up", "down", "idle" } ) );
   command( app, options, Command::metrics, "metrics",
            "Show the agent's counters and gauges, as OpenMetrics text" );
   auto * const show = command( app, options, Command::show, "show",
                                "Show what stands at a path of the state store, as JSON" );
   show->add_option( "PATH", options.path,
                     "Such as status, config/agents or interface/config; nothing is the whole" );
   show->add_flag( "--watch", options.follow, "And again whenever it changes, a line each" );
}

void addMessages( CLI::App & app, Options & options ) {
   auto * const messages =
      command( app, options, Command::messagesList, "messages", "Show, add and remove frames" );
   messages->require_subcommand( 1 );
   auto * const list = command( *messages, options, Command::messagesList, "list",
                                "Show who has queued frames for which interface" );
   addOptionalInterface( *list, options, "Only this one's" );
   auto * const add = command( *messages, options, Command::messagesAdd, "add",
                               "Queue frames, in the place of those that the agent has queued for "
                               "the interface by this command or over the API" );
   add->add_option( "AGENT", options.agent, "A name that no agent of the configuration has" )
      ->required();
   addInterface( *add, options );
   add->add_option( "FRAME", options.frames,
                    "Complete frames in hexadecimal digits; - reads them from standard input, one "
                    "a line" )
      ->required();
   add->add_flag( "--while-running", options.whileConnected,
                  "Stay, and take the frames away at the end, however it comes" );
   auto * const remove =
      command( *messages, options, Command::messagesRemove, "remove", "Take away what was added" );
   remove->add_option( "AGENT", options.agent, "Its name" )->required();
   addInterface( *remove, options );
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
   app.add_flag( "--json", options.json,
                 "Print what the agent answers, as JSON: one object, or one a line where answers "
                 "go on" );
   addLinks( app, options );
   addStatus( app, options );
   addMessages( app, options );
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
