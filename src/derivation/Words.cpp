#include "derivation/Words.h"

#include "derivation/Reader.h"

#include <algorithm>

namespace Derivation {

namespace {

constexpr char const * digits = "0123456789abcdef";

// Without leading zeros.
std::string hexText( U16 value ) {
   std::string text;
   for ( int shift = 12; shift >= 0; shift -= 4 ) {
      if ( auto const digit = value >> shift & 0xf; digit != 0 || !text.empty() || shift == 0 ) {
         text += digits[ digit ];
      }
   }
   return text;
}

} // namespace

std::string hexText( std::string_view bytes ) {
   std::string text;
   for ( char const byte : bytes ) {
      text += digits[ static_cast< U8 >( byte ) >> 4 ];
      text += digits[ static_cast< U8 >( byte ) & 0xf ];
   }
   return text;
}

std::string macText( std::string_view bytes ) {
   std::string text;
   for ( std::size_t i = 0; i < bytes.size(); ++i ) {
      text += ( i == 0 ? "" : ":" ) + hexText( bytes.substr( i, 1 ) );
   }
   return text;
}

std::string ipv4Text( std::string_view bytes ) {
   std::string text;
   for ( std::size_t i = 0; i < bytes.size(); ++i ) {
      text += ( i == 0 ? "" : "." ) + std::to_string( u8At( bytes, i ) );
   }
   return text;
}

std::string ipv6Text( std::string_view bytes ) {
   constexpr std::size_t groups = 8;
   auto const group = [ bytes ]( std::size_t i ) { return u16At( bytes, 2 * i ); };
   // The first of the longest runs of zeros, if it is longer than one.
   std::size_t run = groups, longest = 1;
   for ( std::size_t i = 0; i < groups; ++i ) {
      std::size_t length = 0;
      while ( i + length < groups && group( i + length ) == 0 ) {
         ++length;
      }
      if ( length > longest ) {
         run = i;
         longest = length;
      }
   }
   std::string text;
   for ( std::size_t i = 0; i < groups; ) {
      if ( i == run ) {
         text += "::";
         i += longest;
      } else {
         text += ( text.empty() || text.ends_with( ':' ) ? "" : ":" ) + hexText( group( i ) );
         ++i;
      }
   }
   return text;
}

std::string ipText( std::string_view bytes ) {
   return bytes.size() == 4 ? ipv4Text( bytes ) : ipv6Text( bytes );
}

std::string nameText( std::string_view bytes ) {
   bool const printable = !bytes.empty() && std::all_of( bytes.begin(), bytes.end(), []( char c ) {
      return c >= ' ' && c <= '~';
   } );
   return printable ? std::string( bytes ) : hexText( bytes );
}

std::string changeText( std::string_view what, U32 from, U32 to ) {
   return valueText( what, from ) + " -> " + std::to_string( to );
}

std::string valueText( std::string_view what, U32 value ) {
   return std::string( what ) + " " + std::to_string( value );
}

std::string countText( std::size_t count, std::string_view one ) {
   return std::to_string( count ) + " " + std::string( one ) + ( count == 1 ? "" : "s" );
}

} // namespace Derivation
