// Types whose members are listed once, and become JSON in two forms: as a value, and as text. The text takes a tenth
// of the time that making a value and printing it does: for what is written at each step of many shutdowns.
//
// Beside the type is its list, which argument-dependent lookup finds:
//   template < class Object > void describe( Object & object, Point const & point ) {
//      object.add( "x", point.x );
//   }
// A member is a bool, an integer, a text, a described type; or an optional or a vector of these. An optional that is
// empty becomes null.
#pragma once

#include <algorithm>
#include <concepts>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Valend {

// A type that has such a list.
template < class Type >
concept Described = !std::integral< Type > && !std::convertible_to< Type, std::string_view >;

// An object as a value.
class JsonValue {
 public:
   template < class Type > void add( char const * name, Type const & member ) {
      json_[ name ] = of( member );
   }

   template < class Type > static nlohmann::json of( Type const & value ) {
      if constexpr ( Described< Type > ) {
         JsonValue object;
         describe( object, value );
         return std::move( object.json_ );
      } else {
         return value;
      }
   }
   template < class Type > static nlohmann::json of( std::optional< Type > const & value ) {
      return value ? of( *value ) : nlohmann::json();
   }
   template < class Type > static nlohmann::json of( std::vector< Type > const & values ) {
      auto list = nlohmann::json::array();
      for ( auto const & value : values ) {
         list.push_back( of( value ) );
      }
      return list;
   }

 private:
   nlohmann::json json_ = nlohmann::json::object();
};

// An object as text.
class JsonText {
 public:
   template < class Type > void add( char const * name, Type const & member ) {
      text_ += text_.back() == '{' ? "\"" : ",\"";
      text_ += name;
      text_ += "\":";
      append( member );
   }

   template < class Type > static std::string of( Type const & value ) {
      JsonText text;
      text.text_.reserve( usualBytes );
      text.append( value );
      return std::move( text.text_ );
   }

 private:
   static constexpr std::size_t usualBytes = 1024;

   void append( bool value ) { text_ += value ? "true" : "false"; }
   template < std::integral Type > void append( Type value ) { text_ += std::to_string( value ); }
   // Bytes that are not UTF-8 are replaced.
   void append( std::convertible_to< std::string_view > auto const & text ) {
      std::string_view const value( text );
      auto const plain = []( unsigned char each ) {
         return each >= ' ' && each < 0x7f && each != '"' && each != '\\';
      };
      if ( std::all_of( value.begin(), value.end(), plain ) ) {
         ( ( text_ += '"' ) += value ) += '"';
      } else {
         using Json = nlohmann::json;
         text_ += Json( value ).dump( -1, ' ', false, Json::error_handler_t::replace );
      }
   }
   template < class Type > void append( std::optional< Type > const & value ) {
      if ( value ) {
         append( *value );
      } else {
         text_ += "null";
      }
   }
   template < class Type > void append( std::vector< Type > const & values ) {
      text_ += '[';
      for ( auto const & value : values ) {
         text_ += text_.back() == '[' ? "" : ",";
         append( value );
      }
      text_ += ']';
   }
   void append( Described auto const & value ) {
      text_ += '{';
      describe( *this, value );
      text_ += '}';
   }

   std::string text_;
};

} // namespace Valend
