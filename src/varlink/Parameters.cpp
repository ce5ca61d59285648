#include "varlink/Parameters.h"

namespace Varlink {

namespace {

// The parameter; null when there is none.
Json const * find( Call const & call, char const * name ) {
   auto const found = call.parameters().find( name );
   return found == call.parameters().end() || found->is_null() ? nullptr : &*found;
}

template < class T > T required( std::optional< T > value, char const * name ) {
   return value ? *std::move( value ) : throw BadParameter{ name };
}

} // namespace

std::optional< std::string > optionalText( Call const & call, char const * name ) {
   auto const * const found = find( call, name );
   if ( !found ) {
      return std::nullopt;
   }
   return found->is_string() ? found->get< std::string >() : throw BadParameter{ name };
}

std::optional< std::vector< std::string > > optionalTexts( Call const & call, char const * name ) {
   auto const * const found = find( call, name );
   if ( !found ) {
      return std::nullopt;
   }
   std::vector< std::string > texts;
   for ( auto const & text : found->is_array() ? *found : throw BadParameter{ name } ) {
      texts.push_back( text.is_string() ? text.get< std::string >() : throw BadParameter{ name } );
   }
   return texts;
}

std::optional< U64 > optionalCount( Call const & call, char const * name ) {
   auto const * const found = find( call, name );
   if ( !found ) {
      return std::nullopt;
   }
   bool const fits =
      found->is_number_unsigned() || ( found->is_number_integer() && found->get< S64 >() >= 0 );
   return fits ? found->get< U64 >() : throw BadParameter{ name };
}

bool optionalFlag( Call const & call, char const * name ) {
   auto const * const found = find( call, name );
   return found && ( found->is_boolean() ? found->get< bool >() : throw BadParameter{ name } );
}

std::string requiredText( Call const & call, char const * name ) {
   return required( optionalText( call, name ), name );
}

std::vector< std::string > requiredTexts( Call const & call, char const * name ) {
   return required( optionalTexts( call, name ), name );
}

} // namespace Varlink
