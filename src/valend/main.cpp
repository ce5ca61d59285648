#include "settings/ConfigFiles.h"
#include "valend/Daemon.h"
#include "valend/base/Log.h"
#include "valend/base/OutOfMemory.h"

#include <csignal>
#include <iostream>
#include <optional>

namespace {

using Valend::Exit;

// What valend starts with.
struct Start {
   Settings::ConfigResult read;                   // without errors
   std::vector< Settings::ConfigError > rejected; // why it is the last valid one; empty: it is not
};

void print( std::vector< Settings::ConfigError > const & messages ) {
   for ( auto const & message : messages ) {
      std::cerr << message.message() << '\n';
   }
}

// The last valid configuration, if `read`, which has errors, can be replaced by it.
std::optional< Settings::ConfigResult > lastValid( Settings::ConfigResult const & read,
                                                   Valend::Options const & options ) {
   if ( options.check || options.config == "-" ) {
      return std::nullopt;
   }
   // The setting may be in one of the files that are valid.
   auto const process = read.config.process.overriddenBy( options.process );
   auto last = Valend::LastConfiguration::read( process.value( "state-directory" ) );
   if ( last && !last->errors.empty() ) {
      print( last->errors );
      return std::nullopt;
   }
   return last;
}

// Nothing, with the errors printed, when there is no valid configuration.
std::optional< Start > startOf( Valend::Options const & options ) {
   auto read = Settings::readConfig( options.config );
   if ( read.errors.empty() ) {
      return Start{ std::move( read ), {} };
   }
   if ( auto last = lastValid( read, options ) ) {
      return Start{ *std::move( last ), std::move( read.errors ) };
   }
   print( read.errors );
   return std::nullopt;
}

// Whether `work` was done; else why not is logged.
template < class Work > bool done( char const * failed, Work const & work ) {
   try {
      work();
      return true;
   } catch ( std::exception const & e ) {
      Valend::log( Valend::LogLevel::error, std::string( failed ) + ": " + e.what() );
      return false;
   }
}

Exit run( Valend::Options const & options ) {
   auto const start = startOf( options );
   if ( !start ) {
      return Exit::badConfig;
   }
   if ( options.check ) {
      print( start->read.warnings );
      std::cout << options.config << ": OK, " << start->read.config.summary() << '\n';
      return Exit::done;
   }
   Valen::Linux::StandardError output;
   std::optional< Valend::Daemon > daemon;
   if ( !done( "cannot start",
               [ & ] { daemon.emplace( start->read, start->rejected, options, output ); } ) ) {
      return Exit::failed;
   }
   return done( "exiting after an error", [ & ] { daemon->run(); } ) ? Exit::done : Exit::failed;
}

} // namespace

int main( int argc, char ** argv ) {
   Valend::endWhenOutOfMemory();
   std::signal( SIGPIPE, SIG_IGN ); // a reader of our output may exit before us
   std::signal( SIGXFSZ, SIG_IGN ); // the write fails instead
   Exit exit = Exit::done;
   auto const options = Valend::parseOptions( argc, argv, exit );
   return static_cast< int >( options ? run( *options ) : exit );
}
