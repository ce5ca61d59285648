// Derives the goodbyes of frames. For each file, prints a line if its frame is heard: the protocol, and the frame, its greeting
// and its goodbye in hexadecimal digits; "-" if it has no goodbye.
//   derived_frames FILE...
#include "derivation/Derive.h"
#include "derivation/Words.h"

#include <fstream>
#include <iostream>
#include <iterator>

int main( int count, char ** arguments ) {
   for ( int i = 1; i < count; ++i ) {
      std::ifstream file( arguments[ i ], std::ios::binary );
      std::string const frame{ std::istreambuf_iterator< char >( file ), {} };
      auto const derived = Derivation::derive( frame );
      if ( !derived || std::holds_alternative< Derivation::Malformed >( *derived ) ) {
         continue;
      }
      auto const & heard = std::get< Derivation::Heard >( *derived );
      std::cout << heard.protocol << ' ' << Derivation::hexText( frame ) << ' '
                << Derivation::hexText( heard.greeting ) << ' '
                << ( heard.goodbye.empty() ? "-" : Derivation::hexText( heard.goodbye ) ) << '\n';
   }
}
