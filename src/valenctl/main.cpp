#include "valenctl/Commands.h"

#include <iostream>

int main( int argc, char ** argv ) {
   Valenctl::Commands commands;
   auto const exit =
      commands.run( argc, argv, Valenctl::terminalOfProcess(), std::cout, std::cerr );
   return static_cast< int >( exit );
}
