#include "platform/quill/Printable.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace Quill {

namespace {

struct Character {
   std::uint32_t code = 0;
   std::size_t bytes = 1;
   bool valid = false; // UTF-8: not overlong, no surrogate, at most U+10FFFF
};

std::uint32_t byteAt( std::string_view text, std::size_t at ) {
   return at < text.size() ? static_cast< unsigned char >( text[ at ] ) : 0;
}

// The first character of a text that is not empty.
Character decoded( std::string_view text ) {
   auto const first = byteAt( text, 0 );
   if ( first < 0x80 ) {
      return { first, 1, true };
   }
   std::size_t const bytes = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
   if ( bytes == 0 || first > 0xf4 ) {
      return { first, 1, false };
   }
   auto code = first & ( 0x7fu >> bytes );
   for ( std::size_t i = 1; i < bytes; ++i ) {
      auto const next = byteAt( text, i );
      if ( ( next & 0xc0 ) != 0x80 ) {
         return { first, 1, false };
      }
      code = code << 6 | ( next & 0x3f );
   }
   static constexpr std::array< std::uint32_t, 5 > smallest{ 0, 0, 0x80, 0x800, 0x10000 };
   bool const valid =
      code >= smallest[ bytes ] && code <= 0x10ffff && !( code >= 0xd800 && code <= 0xdfff );
   return valid ? Character{ code, bytes, true } : Character{ first, 1, false };
}

bool isPrintable( Character const & character ) {
   auto const code = character.code;
   auto const within = [ code ]( std::uint32_t from, std::uint32_t to ) {
      return code >= from && code <= to;
   };
   return character.valid && code >= 0x20 && !within( 0x7f, 0x9f ) && code != 0x61c &&
          !within( 0x200e, 0x200f ) && !within( 0x2028, 0x202e ) && !within( 0x2066, 0x2069 );
}

std::string formatted( char const * format, std::uint32_t number ) {
   std::array< char, 64 > text{};
   std::snprintf( text.data(), text.size(), format, number );
   return text.data();
}

} // namespace

std::optional< std::string > unprintableIn( std::string_view text ) {
   for ( std::size_t at = 0, number = 1; at < text.size(); ++number ) {
      auto const character = decoded( text.substr( at ) );
      if ( !isPrintable( character ) ) {
         return "character " + std::to_string( number ) + " is " +
                formatted( character.valid ? "U+%04X" : "the byte 0x%02x, which is not UTF-8",
                           character.code );
      }
      at += character.bytes;
   }
   return std::nullopt;
}

std::string printable( std::string_view text ) {
   std::string result;
   result.reserve( text.size() );
   while ( !text.empty() ) {
      auto const character = decoded( text );
      for ( auto const byte : text.substr( 0, character.bytes ) ) {
         if ( isPrintable( character ) ) {
            result += byte;
         } else {
            result += formatted( "\\x%02x", static_cast< unsigned char >( byte ) );
         }
      }
      text.remove_prefix( character.bytes );
   }
   return result;
}

} // namespace Quill
