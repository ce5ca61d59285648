#include "valenctl/Commands.h"

#include "valenctl/Completion.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/frame/FrameSender.h"

#include <CLI/CLI.hpp>
#include <ostream>

namespace Valenctl {

namespace {

constexpr char const * footer = R"(
Exit status: 0 success
             1 the request failed or was rejected
             2 invalid command or option
             3 cannot connect to valend
             4 no answer in time, or the awaited state was not reached in time

Data goes to standard output, everything else to standard error. Tables are colored
on a terminal, unless NO_COLOR is set.)";

// All commands, under the headings that help lists them.
struct Group {
   char const * heading;
   std::vector< CommandRow > ( *rows )();
};
constexpr Group groups[] = {
   { "Interfaces", linkCommands },   { "Interfaces", statusCommands },
   { "Interfaces", watchCommand },   { "Frames", messageCommands },
   { "Frames", frameCommands },      { "Configuration", configCommands },
   { "Inspection", daemonCommands }, { "Inspection", traceCommands },
};

// Runs `command`, and prints what it throws.
Exit runCommand( Command & command, Session & session ) {
   auto const fails = [ & ]( std::string const & text, Exit exit ) {
      session.err() << "valenctl: " << text << '\n';
      return exit;
   };
   try {
      return command.run( session );
   } catch ( UsageError const & e ) {
      return fails( e.what(), Exit::usage );
   } catch ( Varlink::Refused const & e ) {
      return fails( e.what(),
                    e.name() == "org.valen.daemon.TimedOut" ? Exit::timedOut : Exit::failed );
   } catch ( Varlink::TimedOut const & ) {
      return fails( "valend did not answer within " +
                       std::to_string( session.answerTimeout().count() ) + " ms",
                    Exit::timedOut );
   } catch ( Varlink::NoService const & e ) {
      return fails( e.what(), Exit::notConnected );
   } catch ( Json::exception const & e ) {
      return fails( "cannot read the answer of valend at " + session.socket() + ": " + e.what(),
                    Exit::notConnected );
   } catch ( std::exception const & e ) {
      return fails( e.what(), Exit::failed );
   }
}

// The names of valend's interfaces; none when it does not answer soon.
std::vector< std::string > interfaceNames( std::string const & socket, std::ostream & out ) {
   Session session( { socket, std::chrono::seconds( 1 ) }, { out, out, {}, Format::text } );
   try {
      return textsField( session.call( "List" ), "interfaces" );
   } catch ( std::exception const & ) {
      return {}; // errors would disturb completion
   }
}

} // namespace

Commands::Commands()
    : app_( std::make_unique< CLI::App >( "Shuts interfaces down and enables them, through valend",
                                          "valenctl" ) ) {
   app_->footer( footer );
   app_->require_subcommand( 1 );
   Valenctl::addOptions( *app_, options_ );
   for ( auto const & group : groups ) {
      for ( auto const & row : group.rows() ) {
         add( row, group.heading );
      }
   }
}

Commands::~Commands() = default;

void Commands::add( CommandRow const & row, std::string const & heading ) {
   auto * parent = app_.get();
   auto name = row.name;
   for ( auto end = name.find( ' ' ); end != std::string::npos; end = name.find( ' ' ) ) {
      parent = parent->get_subcommand( name.substr( 0, end ) );
      name.erase( 0, end + 1 );
   }
   auto * const app = parent->add_subcommand( name, row.help );
   app->group( parent == app_.get() ? heading : "Commands" );
   app->footer( row.footer );
   app->fallthrough(); // the common options may follow the command
   if ( !row.make ) {
      app->require_subcommand( 1 );
      return;
   }
   auto & command = *commands_.emplace_back( row.make() );
   command.addOptions( *app );
   app->require_subcommand( 0, 1 );
   app->callback( [ this, app, &command ] {
      if ( app->get_subcommands().empty() ) { // called for `trace` after `trace follow`, too
         selected_ = &command;
      }
   } );
}

Exit Commands::run( int argc, char const * const * argv, Terminal const & terminal,
                    std::ostream & out, std::ostream & err ) {
   if ( argc > 1 && std::string( argv[ 1 ] ) == completionCommand ) {
      return complete( { argv + 2, argv + argc }, out );
   }
   try {
      app_->parse( argc, argv );
   } catch ( CLI::ParseError const & e ) {
      return app_->exit( e, out, err ) == 0 ? Exit::done : Exit::usage;
   }
   auto const format = options_.json ? Format::json : Format::text;
   Session session( { options_.socket, options_.timeout() }, { out, err, terminal, format } );
   return runCommand( *selected_, session );
}

// Prints what may come next, a line each: the text, a tab and its help. A line without a text stands
// for the names of files, which the shell knows better.
Exit Commands::complete( std::vector< std::string > const & words, std::ostream & out ) const {
   auto result = completion( *app_, words );
   if ( result.also == Completion::Also::interfaces ) {
      for ( auto const & name : interfaceNames( socketIn( words, options_.socket ), out ) ) {
         if ( words.empty() || name.starts_with( words.back() ) ) {
            result.candidates.push_back( { name, "interface" } );
         }
      }
   }
   if ( result.also == Completion::Also::files ) {
      result.candidates.push_back( { "", "file" } );
   }
   for ( auto const & candidate : result.candidates ) {
      out << candidate.text << '\t' << candidate.help << '\n';
   }
   return Exit::done;
}

} // namespace Valenctl
