#include "config/ConfigReader.h"
#include "valend/Agent.h"
#include "valend/Log.h"

#include <csignal>
#include <iostream>

namespace {

using Valend::Exit;

// Reads and checks the configuration. Nothing when it is refused, which is said.
std::optional< Valend::Config > configOf( Valend::Options const & options ) {
   auto result = ValenConfig::readConfig( options.config );
   for ( auto const & error : result.errors ) {
      std::cerr << error.message() << '\n';
   }
   return result.errors.empty() ? std::optional( std::move( result.config ) ) : std::nullopt;
}

Exit run( Valend::Options const & options ) {
   auto const config = configOf( options );
   if ( !config ) {
      return Exit::badConfig;
   }
   if ( options.check ) {
      std::cout << options.config << ": in order; " << config->interfaces.size() << " interfaces, "
                << config->vrfs.size() + 1 << " VRFs, " << config->agents.size() << " agents\n";
      return Exit::done;
   }
   try {
      Valend::Agent agent( *config, options );
      agent.run();
      return Exit::done;
   } catch ( std::exception const & e ) {
      Valend::log( Valend::LogLevel::error, std::string( "cannot start: " ) + e.what() );
      return Exit::failed;
   }
}

} // namespace

int main( int argc, char ** argv ) {
   std::signal( SIGPIPE, SIG_IGN ); // whoever reads our words may go
   Exit exit = Exit::done;
   auto const options = Valend::parseOptions( argc, argv, exit );
   return static_cast< int >( options ? run( *options ) : exit );
}
