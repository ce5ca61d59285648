#include "varlink/Description.h"

#include "varlink/DescriptionParser.h"

#include <algorithm>

namespace Varlink {

namespace {

using Kind = Type::Kind;

// A value that does not fit into 64 bits with a sign is not an integer here.
bool isInteger( Json const & value ) {
   return value.is_number_unsigned() ? value.get< U64 >() <= U64( INT64_MAX )
                                     : value.is_number_integer();
}

} // namespace

Description::Description( std::string_view text ) {
   auto content = DescriptionParser( text ).parse();
   name_ = std::move( content.name );
   methods_ = std::move( content.methods );
   errors_ = std::move( content.errors );
   types_ = std::move( content.types );
}

Type const & Description::resolved( Type const & type ) const {
   return type.kind == Kind::named ? types_.at( type.name ) : type;
}

bool Description::conforms( Json const & value, Type const & type ) const {
   auto const elementConforms = [ & ]( Json const & element ) {
      return conforms( element, *type.element );
   };
   switch ( type.kind ) {
   case Kind::boolean:
      return value.is_boolean();
   case Kind::integer:
      return isInteger( value );
   case Kind::number:
      return value.is_number();
   case Kind::string:
      return value.is_string();
   case Kind::object:
      return !value.is_null();
   case Kind::enumeration:
      return value.is_string() && std::count( type.values.begin(), type.values.end(), value ) > 0;
   case Kind::structure:
      return value.is_object() && !mismatch( value, type );
   case Kind::array:
      return value.is_array() && std::all_of( value.begin(), value.end(), elementConforms );
   case Kind::map:
      return value.is_object() && std::all_of( value.begin(), value.end(), elementConforms );
   case Kind::optional:
      return value.is_null() || elementConforms( value );
   case Kind::named:
      return conforms( value, resolved( type ) );
   }
   return false;
}

std::optional< std::string > Description::mismatch( Json const & object,
                                                    Type const & structure ) const {
   static Json const absent; // like null
   for ( auto const & field : structure.fields ) {
      auto const found = object.find( field.name );
      if ( !conforms( found == object.end() ? absent : *found, field.type ) ) {
         return field.name;
      }
   }
   for ( auto const & [ name, value ] : object.items() ) {
      if ( std::none_of(
              structure.fields.begin(), structure.fields.end(),
              [ &, &key = name ]( Field const & field ) { return field.name == key; } ) ) {
         return name;
      }
   }
   return std::nullopt;
}

} // namespace Varlink
