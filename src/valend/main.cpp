#include "settings/ConfigFiles.h"
#include "valend/Daemon.h"
#include "valend/base/Log.h"

#include <csignal>
#include <iostream>

namespace {

using Valend::Exit;

Exit run( Valend::Options const & options ) {
   auto const read = Settings::readConfig( options.config );
   for ( auto const & error : read.errors ) {
      std::cerr << error.message() << '\n';
   }
   if ( !read.errors.empty() ) {
      return Exit::badConfig;
   }
   if ( options.check ) {
      std::cout << options.config << ": OK, " << read.config.summary() << '\n';
      return Exit::done;
   }
   try {
      Valend::Daemon daemon( read, options );
      daemon.run();
      return Exit::done;
   } catch ( std::exception const & e ) {
      Valend::log( Valend::LogLevel::error, std::string( "cannot start: " ) + e.what() );
      return Exit::failed;
   }
}

} // namespace

int main( int argc, char ** argv ) {
   std::signal( SIGPIPE, SIG_IGN ); // a reader of our output may exit before us
   Exit exit = Exit::done;
   auto const options = Valend::parseOptions( argc, argv, exit );
   return static_cast< int >( options ? run( *options ) : exit );
}
