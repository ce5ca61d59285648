#include "valenctl/Commands.h"

#include <iostream>

int main( int argc, char ** argv ) {
   auto exit = Valenctl::Exit::done;
   auto const options = Valenctl::parseOptions( argc, argv, exit );
   if ( options ) {
      exit = Valenctl::runCommand( *options, std::cout, std::cerr );
   }
   return static_cast< int >( exit );
}
