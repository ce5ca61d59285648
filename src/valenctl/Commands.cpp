#include "valenctl/Commands.h"

#include "settings/Version.h"
#include "valenctl/CommandPlace.h"
#include "valenctl/Completion.h"
#include "valenctl/Names.h"
#include "valenctl/UnknownWord.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/frame/FrameSender.h"
#include "valenctl/text/ErrorJson.h"

#include <CLI/CLI.hpp>
#include <ostream>

namespace Valenctl {

namespace {

constexpr char const * footer = "See valenctl(1) for exit statuses and examples.";

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

// A failure: what valenctl exits with, and its name, as valend's errors have one.
struct Failure {
   Exit exit;
   std::string name;
   std::string text;
   Json parameters = Json::object();
};

Failure ownFailure( Exit exit, char const * name, std::string const & text ) {
   return { exit, std::string( "org.valen.valenctl." ) + name, text };
}

// The failure that an exception of a command is.
Failure failureOf( std::exception_ptr const & thrown, Session const & session ) {
   try {
      std::rethrow_exception( thrown );
   } catch ( UsageError const & e ) {
      return ownFailure( Exit::usage, "InvalidCommand", e.what() );
   } catch ( Database::InvalidAddress const & e ) {
      return ownFailure( Exit::usage, "InvalidCommand", std::string( "--database: " ) + e.what() );
   } catch ( NoDatabase const & e ) {
      return ownFailure( Exit::notConnected, "NotConnected", e.what() );
   } catch ( Varlink::Refused const & e ) {
      auto const exit = e.name() == "org.valen.daemon.TimedOut" ? Exit::timedOut : Exit::failed;
      return { exit, e.name(), e.what(), e.parameters() };
   } catch ( Varlink::TimedOut const & ) {
      return ownFailure( Exit::timedOut, "TimedOut",
                         "valend did not answer within " +
                            std::to_string( session.answerTimeout().count() ) + " ms" );
   } catch ( Varlink::NoService const & e ) {
      return ownFailure( Exit::notConnected, "NotConnected", e.what() );
   } catch ( Json::exception const & e ) {
      return ownFailure( Exit::notConnected, "InvalidAnswer",
                         "cannot read the answer of valend at " + session.socket() + ": " +
                            e.what() );
   } catch ( std::exception const & e ) {
      return ownFailure( Exit::failed, "Failed", e.what() );
   }
}

// Prints a failure: for people, and with --json also for programs.
Exit report( Failure const & failure, Session & session ) {
   session.err() << "valenctl: " << failure.text << '\n';
   if ( session.json() ) {
      session.printLine( errorJson( failure.name, failure.text, failure.parameters ) );
   }
   return failure.exit;
}

template < class Run > Exit guarded( Session & session, Run const & run ) {
   try {
      return run();
   } catch ( ... ) {
      return report( failureOf( std::current_exception(), session ), session );
   }
}

// Where the words stop to make sense, for a reference to the help of the command that they name.
std::string pathOf( CLI::App const & app, std::vector< std::string > const & words ) {
   CommandPlace place( app );
   for ( auto const & word : words ) {
      place.pass( word );
   }
   return place.commandPath();
}

} // namespace

Commands::Commands()
    : app_( std::make_unique< CLI::App >( "Shuts interfaces down and enables them, through valend",
                                          "valenctl" ) ) {
   app_->footer( footer );
   app_->require_subcommand( 1 );
   app_->set_version_flag( "--version", std::string( "valenctl " ) + Settings::version,
                           "Print the version and exit" );
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
   std::vector< std::string > const words( argv + std::min( argc, 1 ), argv + argc );
   try {
      app_->parse( argc, argv );
   } catch ( CLI::ParseError const & e ) {
      if ( e.get_exit_code() == 0 ) {
         app_->exit( e, out, err ); // prints help or the version
         return Exit::done;
      }
      return invalid( words, e.what(), { out, err, terminal, formatIn( words ) } );
   }
   Output const output{ out, err, terminal, options_.json ? Format::json : Format::text };
   Session session( { options_.socket, options_.timeout() }, output );
   return guarded( session, [ & ] {
      return options_.database.empty() ? selected_->run( session ) : runForHosts( output );
   } );
}

Exit Commands::runForHosts( Output const & output ) const {
   DatabaseClient client( options_.database, options_.timeout() );
   return selected_->runForHosts(
      { client, output, options_.hostNames(), !options_.hosts.empty() } );
}

// Prints why the command line does not parse. A word that does not exist is the cause of the rest.
Exit Commands::invalid( std::vector< std::string > const & words, std::string const & problem,
                        Output const & output ) const {
   auto const unknown = unknownWord( *app_, words );
   Session session( {}, output );
   auto const exit = report(
      ownFailure( Exit::usage, "InvalidCommand", unknown.empty() ? problem : unknown ), session );
   session.err() << "Run \"" << pathOf( *app_, words ) << " --help\" for more information.\n";
   return exit;
}

// Prints what may come next, a line each: the text, a tab and its help. A line without a text stands
// for the names of files, which the shell knows better.
Exit Commands::complete( std::vector< std::string > const & words, std::ostream & out ) const {
   auto result = completion( *app_, words );
   Session session( { valueIn( words, "--socket", options_.socket ), std::chrono::seconds( 1 ) },
                    { out, out, {}, Format::text } );
   auto const database = valueIn( words, "--database", "" );
   for ( auto const & name : database.empty()
                                ? names( result.also, session, valueIn( words, "--netns", "" ) )
                                : namesInDatabase( result.also, database ) ) {
      if ( words.empty() || name.text.starts_with( words.back() ) ) {
         result.candidates.push_back( name );
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
