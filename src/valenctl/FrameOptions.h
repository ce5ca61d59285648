// How options of `valenctl frame` are read: texts become addresses and names, and what is none is
// refused in the parser's own way.
#pragma once

#include "goodbye/Addresses.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace Valenctl {

using TakeText = std::function< void( std::string const & ) >;

// An option that may be given several times. `take` gets each text, or refuses it with BadText.
inline CLI::Option * addTexts( CLI::App & app, std::string const & name, char const * type,
                               std::string const & help, TakeText const & take ) {
   auto const takeAll = [ name, take ]( std::vector< std::string > const & texts ) {
      try {
         for ( auto const & text : texts ) {
            take( text );
         }
      } catch ( Goodbye::BadText const & e ) {
         throw CLI::ValidationError( name, e.what() );
      }
   };
   return app.add_option_function< std::vector< std::string > >( name, takeAll, help )
      ->type_name( type )
      ->expected( 1 )
      ->multi_option_policy( CLI::MultiOptionPolicy::TakeAll );
}

// An option that is given once.
inline CLI::Option * addText( CLI::App & app, std::string const & name, char const * type,
                              std::string const & help, TakeText const & take ) {
   return addTexts( app, name, type, help, take )
      ->multi_option_policy( CLI::MultiOptionPolicy::Throw );
}

} // namespace Valenctl
