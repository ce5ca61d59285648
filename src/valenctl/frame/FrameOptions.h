// Options of `valenctl frame` whose texts are addresses or names. A text that does not parse is
// reported like any other wrong option.
#pragma once

#include "goodbye/Addresses.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace Valenctl {

using TakeText = std::function< void( std::string const & ) >;

// Adds an option that may be repeated. `take` receives each text; it throws BadText for a wrong one.
// `type` names the value in help.
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

// Adds an option that may be given once; otherwise as addTexts.
inline CLI::Option * addText( CLI::App & app, std::string const & name, char const * type,
                              std::string const & help, TakeText const & take ) {
   return addTexts( app, name, type, help, take )
      ->multi_option_policy( CLI::MultiOptionPolicy::Throw );
}

} // namespace Valenctl
