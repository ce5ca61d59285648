#include "varlink/DescriptionParser.h"

#include <algorithm>

namespace Varlink {

namespace {

using Kind = Type::Kind;

bool isLower( char c ) {
   return c >= 'a' && c <= 'z';
}

bool isUpper( char c ) {
   return c >= 'A' && c <= 'Z';
}

bool isWordPart( char c ) {
   return isLower( c ) || isUpper( c ) || ( c >= '0' && c <= '9' ) || c == '_';
}

bool isInterfacePart( char c ) {
   return ( isWordPart( c ) && c != '_' ) || c == '.' || c == '-';
}

// What the text goes on with, for a person: "\")\"", "the end".
std::string shown( std::string_view rest ) {
   if ( rest.empty() ) {
      return "the end";
   }
   auto const length = std::find_if_not( rest.begin(), rest.end(), isWordPart ) - rest.begin();
   return "\"" +
          std::string( rest.substr(
             0, std::max< std::size_t >( 1, static_cast< std::size_t >( length ) ) ) ) +
          "\"";
}

} // namespace

DescriptionParser::Content DescriptionParser::parse() {
   expect( "interface" );
   content_.name = interfaceName();
   for ( skip(); !rest_.empty(); skip() ) {
      member();
   }
   requireTypes();
   return std::move( content_ );
}

void DescriptionParser::member() {
   bool const isType = take( "type" );
   bool const isMethod = !isType && take( "method" );
   if ( !isType && !isMethod && !take( "error" ) ) {
      fail( "expected \"type\", \"method\" or \"error\", not " + shown( rest_ ) );
   }
   skip();
   auto const place = at();
   auto const name = memberName();
   if ( content_.types.contains( name ) || content_.methods.contains( name ) ||
        content_.errors.contains( name ) ) {
      failAt( place, "duplicate \"" + name + "\"" );
   }
   if ( isType ) {
      content_.types[ name ] = structureOrEnumeration();
   } else if ( !isMethod ) {
      content_.errors[ name ] = structure();
   } else {
      auto parameters = structure();
      expect( "->" );
      content_.methods[ name ] = { name, std::move( parameters ), structure() };
   }
}

// --- Types ---------------------------------------------------------------------------------------

Type DescriptionParser::type() {
   if ( ++depth_ > Description::maxDepth ) {
      fail( "types are nested more than " + std::to_string( Description::maxDepth ) + " deep" );
   }
   Type result;
   if ( take( "?" ) ) {
      result.kind = Kind::optional;
      if ( skip(); rest_.starts_with( '?' ) ) {
         fail( "duplicate \"?\"" );
      }
   } else if ( take( "[]" ) ) {
      result.kind = Kind::array;
   } else if ( take( "[" ) ) {
      expect( "string" );
      expect( "]" );
      result.kind = Kind::map;
   } else {
      result = plainType();
      --depth_;
      return result;
   }
   result.element = std::make_shared< Type const >( type() );
   --depth_;
   return result;
}

Type DescriptionParser::plainType() {
   static std::map< std::string, Kind > const kinds{ { "bool", Kind::boolean },
                                                     { "int", Kind::integer },
                                                     { "float", Kind::number },
                                                     { "string", Kind::string },
                                                     { "object", Kind::object } };
   if ( skip(); rest_.starts_with( '(' ) ) {
      return structureOrEnumeration();
   }
   auto const place = at();
   Type result;
   result.name = word( "a type", isWordPart );
   if ( auto const kind = kinds.find( result.name ); kind != kinds.end() ) {
      result.kind = kind->second;
      result.name.clear();
   } else {
      result.kind = Kind::named;
      references_.push_back( { result.name, place } );
   }
   return result;
}

// "(name: type, ...)" or "(value, value ...)".
Type DescriptionParser::structureOrEnumeration() {
   expect( "(" );
   Type result;
   result.kind = Kind::structure;
   if ( take( ")" ) ) {
      return result;
   }
   auto const before = rest_;
   auto first = fieldName();
   if ( skip(); rest_.starts_with( ':' ) ) {
      rest_ = before;
      fields( result );
   } else {
      result.kind = Kind::enumeration;
      values( result, std::move( first ) );
   }
   return result;
}

Type DescriptionParser::structure() {
   skip();
   auto const place = at();
   auto result = structureOrEnumeration();
   if ( result.kind != Kind::structure ) {
      failAt( place, "expected fields with types, not values" );
   }
   return result;
}

void DescriptionParser::fields( Type & structure ) {
   do {
      skip();
      auto const place = at();
      auto name = fieldName();
      if ( std::any_of( structure.fields.begin(), structure.fields.end(),
                        [ & ]( Field const & field ) { return field.name == name; } ) ) {
         failAt( place, "duplicate \"" + name + "\"" );
      }
      expect( ":" );
      structure.fields.push_back( { std::move( name ), type() } );
   } while ( take( "," ) );
   expect( ")" );
}

void DescriptionParser::values( Type & enumeration, std::string first ) {
   enumeration.values.push_back( std::move( first ) );
   while ( take( "," ) ) {
      skip();
      auto const place = at();
      enumeration.values.push_back( fieldName() );
      auto const & values = enumeration.values;
      if ( std::count( values.begin(), values.end(), values.back() ) > 1 ) {
         failAt( place, "duplicate \"" + values.back() + "\"" );
      }
   }
   expect( ")" );
}

void DescriptionParser::requireTypes() const {
   for ( auto const & [ name, place ] : references_ ) {
      if ( !content_.types.contains( name ) ) {
         failAt( place, "type \"" + name + "\" is not defined" );
      }
   }
}

// --- Pieces of text ------------------------------------------------------------------------------

void DescriptionParser::skip() {
   for ( ;; ) {
      auto const blank = rest_.find_first_not_of( " \t\r\n" );
      rest_.remove_prefix( std::min( blank, rest_.size() ) );
      if ( !rest_.starts_with( '#' ) ) {
         return;
      }
      rest_.remove_prefix( std::min( rest_.find( '\n' ), rest_.size() ) );
   }
}

// Whether the token comes next; a word only as a whole.
bool DescriptionParser::take( std::string_view token ) {
   skip();
   if ( !rest_.starts_with( token ) ||
        ( isWordPart( token.back() ) && rest_.size() > token.size() &&
          isWordPart( rest_[ token.size() ] ) ) ) {
      return false;
   }
   rest_.remove_prefix( token.size() );
   return true;
}

void DescriptionParser::expect( std::string_view token ) {
   if ( !take( token ) ) {
      fail( "expected \"" + std::string( token ) + "\", not " + shown( rest_ ) );
   }
}

std::string DescriptionParser::word( char const * what, bool ( *isPart )( char c ) ) {
   skip();
   auto const end = std::find_if_not( rest_.begin(), rest_.end(), isPart );
   std::string text( rest_.begin(), end );
   if ( text.empty() ) {
      fail( std::string( "expected " ) + what + ", not " + shown( rest_ ) );
   }
   rest_.remove_prefix( text.size() );
   return text;
}

std::string DescriptionParser::interfaceName() {
   skip();
   auto const place = at();
   auto name = word( "a name", isInterfacePart );
   if ( name.find( '.' ) == name.npos || name.find( ".." ) != name.npos ||
        !isWordPart( name.front() ) || !isWordPart( name.back() ) ) {
      failAt( place, "\"" + name + "\" is not a name like \"org.example.service\"" );
   }
   return name;
}

std::string DescriptionParser::memberName() {
   skip();
   auto const place = at();
   auto name = word( "a name", isWordPart );
   if ( !isUpper( name.front() ) || name.find( '_' ) != name.npos ) {
      failAt( place, "\"" + name + "\" does not begin with a capital letter, or has a \"_\"" );
   }
   return name;
}

std::string DescriptionParser::fieldName() {
   skip();
   auto const place = at();
   auto name = word( "a name", isWordPart );
   if ( !isLower( name.front() ) && !isUpper( name.front() ) ) {
      failAt( place, "\"" + name + "\" does not begin with a letter" );
   }
   return name;
}

void DescriptionParser::failAt( std::size_t place, std::string const & text ) const {
   auto const before = text_.substr( 0, place );
   auto const line = static_cast< std::size_t >( std::count( before.begin(), before.end(), '\n' ) );
   auto const lineBegin = before.rfind( '\n' ) + 1; // 0 in the first line
   throw DescriptionError( line + 1, place - lineBegin + 1, text );
}

} // namespace Varlink
