#include "valenctl/Completion.h"

#include "valenctl/CommandPlace.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace Valenctl {

namespace {

std::vector< std::string > split( std::string const & text, char separator ) {
   std::vector< std::string > parts;
   std::istringstream stream( text );
   for ( std::string part; std::getline( stream, part, separator ); ) {
      parts.push_back( part );
   }
   return parts;
}

// What the words of a type stand for, and who knows them.
struct Known {
   char const * type;
   Completion::Also also;
};
constexpr Known known[] = {
   { "INTERFACE", Completion::Also::interfaces },
   { "FILE", Completion::Also::files },
   { "VRF", Completion::Also::vrfs },
   { "DEVICE", Completion::Also::devices },
   { "DEV", Completion::Also::localDevices },
   { "NETNS", Completion::Also::namespaces },
   { "AGENT", Completion::Also::agents },
   { "HOST", Completion::Also::hosts },
};

void addValues( Completion & result, std::string const & type ) {
   for ( auto const & each : known ) {
      if ( type == each.type ) {
         result.also = each.also;
      }
   }
   if ( type.find( '|' ) != std::string::npos ) {
      for ( auto const & word : split( type, '|' ) ) {
         result.candidates.push_back( { word, "" } );
      }
   }
}

void addOptions( Completion & result, CommandPlace const & place ) {
   for ( auto const * option : place.options() ) {
      for ( auto const & name : option->get_lnames() ) {
         result.candidates.push_back( { "--" + name, option->get_description() } );
      }
   }
}

void addArguments( Completion & result, CommandPlace const & place ) {
   for ( auto const * command : place.commands() ) {
      result.candidates.push_back( { command->get_name(), command->get_description() } );
   }
   if ( auto const * const argument = place.argument() ) {
      addValues( result, argument->get_name( true ) );
   }
}

} // namespace

Completion completion( CLI::App const & app, std::vector< std::string > const & words ) {
   CommandPlace place( app );
   for ( std::size_t i = 0; i + 1 < words.size(); ++i ) {
      place.pass( words[ i ] );
   }
   auto const typed = words.empty() ? "" : words.back();
   Completion result;
   if ( auto const * const option = place.awaitsValue() ) {
      addValues( result, option->get_type_name() );
   } else if ( typed.starts_with( '-' ) ) {
      addOptions( result, place );
   } else {
      addArguments( result, place );
      if ( result.candidates.empty() && result.also == Completion::Also::nothing ) {
         addOptions( result, place );
      }
   }
   std::erase_if( result.candidates, [ & ]( Candidate const & candidate ) {
      return !candidate.text.starts_with( typed );
   } );
   return result;
}

std::string valueIn( std::vector< std::string > const & words, std::string const & option,
                     std::string const & otherwise ) {
   auto const last = std::find( words.rbegin(), words.rend(), option );
   return last == words.rend() || last == words.rbegin() ? otherwise : *std::prev( last );
}

} // namespace Valenctl
