#include "valenctl/UnknownWord.h"

#include "valenctl/CommandPlace.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <numeric>

namespace Valenctl {

namespace {

// How many letters were added, left out, replaced or exchanged with their neighbor.
std::size_t slips( std::string const & a, std::string const & b ) {
   std::vector< std::size_t > beforeLast, last( b.size() + 1 ), current( b.size() + 1 );
   std::iota( last.begin(), last.end(), 0u );
   for ( std::size_t i = 1; i <= a.size(); ++i ) {
      current[ 0 ] = i;
      for ( std::size_t j = 1; j <= b.size(); ++j ) {
         auto const same = a[ i - 1 ] == b[ j - 1 ];
         current[ j ] =
            std::min( { last[ j ] + 1, current[ j - 1 ] + 1, last[ j - 1 ] + ( same ? 0 : 1 ) } );
         if ( i > 1 && j > 1 && a[ i - 1 ] == b[ j - 2 ] && a[ i - 2 ] == b[ j - 1 ] ) {
            current[ j ] = std::min( current[ j ], beforeLast[ j - 2 ] + 1 );
         }
      }
      beforeLast = last;
      last = current;
   }
   return last.back();
}

std::string unknown( char const * kind, std::string const & word,
                     std::vector< std::string > const & candidates ) {
   auto const near = nearest( word, candidates );
   return std::string( "unknown " ) + kind + " \"" + word + "\"" +
          ( near.empty() ? "" : "; did you mean \"" + near + "\"?" );
}

std::string unknownOption( CommandPlace const & place, std::string const & word ) {
   std::vector< std::string > names;
   for ( auto const * option : place.options() ) {
      for ( auto const & name : option->get_lnames() ) {
         names.push_back( "--" + name );
      }
   }
   return unknown( "option", word.substr( 0, word.find( '=' ) ), names );
}

char const * kindOfCommands( CommandPlace const & place ) {
   return place.command().get_name() == "frame" ? "frame kind" : "command";
}

std::string unknownCommand( CommandPlace const & place, std::string const & word ) {
   std::vector< std::string > names;
   for ( auto const * command : place.commands() ) {
      names.push_back( command->get_name() );
   }
   return unknown( kindOfCommands( place ), word, names );
}

} // namespace

std::string unknownWord( CLI::App const & app, std::vector< std::string > const & words ) {
   CommandPlace place( app );
   for ( auto const & word : words ) {
      if ( word == "--" ) {
         break; // what follows are arguments
      }
      if ( place.isOption( word ) && !place.optionCalled( word ) ) {
         return unknownOption( place, word );
      }
      if ( !place.isOption( word ) && place.expectsCommand() && !place.commandCalled( word ) ) {
         return unknownCommand( place, word );
      }
      place.pass( word );
   }
   if ( place.expectsCommand() && place.command().get_require_subcommand_min() > 0 ) {
      return std::string( kindOfCommands( place ) ) + " missing";
   }
   return "";
}

std::string nearest( std::string const & word, std::vector< std::string > const & candidates ) {
   constexpr std::size_t lettersForASlip = 3;
   auto best = std::max( word.size() / lettersForASlip, std::size_t( 1 ) ) + 1;
   std::string near;
   for ( auto const & candidate : candidates ) {
      auto const distance = candidate.starts_with( word ) ? 1 : slips( word, candidate );
      if ( distance < best ) {
         best = distance;
         near = candidate;
      } else if ( distance == best ) {
         near.clear();
      }
   }
   return near;
}

} // namespace Valenctl
