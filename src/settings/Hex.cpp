#include "settings/Hex.h"

#include "settings/Counted.h"

namespace Settings {

namespace {

int hexDigit( char character ) {
   if ( character >= '0' && character <= '9' ) {
      return character - '0';
   }
   auto const lower = static_cast< char >( character | 0x20 );
   return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool separates( char character ) {
   return std::string_view( " \t\r\n:" ).find( character ) != std::string_view::npos;
}

std::string shown( char character ) {
   auto const byte = static_cast< unsigned char >( character );
   if ( byte > 0x20 && byte < 0x7f ) {
      return std::string( "\"" ) + character + "\"";
   }
   return "byte 0x" + toHex( std::string_view( &character, 1 ) );
}

} // namespace

std::string frameFromHex( std::string_view text ) {
   std::string bytes;
   bytes.reserve( text.size() / 2 );
   std::size_t digits = 0;
   int high = 0;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      if ( separates( text[ i ] ) ) {
         continue;
      }
      auto const value = hexDigit( text[ i ] );
      if ( value < 0 ) {
         throw HexError( shown( text[ i ] ) + " at character " + std::to_string( i + 1 ) +
                         " of the frame; expected hexadecimal digits" );
      }
      if ( digits++ % 2 == 0 ) {
         high = value;
      } else {
         bytes += static_cast< char >( high << 4 | value );
      }
   }
   if ( digits % 2 ) {
      throw HexError( "frame of " + counted( digits, "hexadecimal digit" ) +
                      "; expected two for each byte" );
   }
   if ( bytes.size() < minFrameBytes ) {
      throw HexError( "frame of " + counted( bytes.size(), "byte" ) + "; expected at least " +
                      std::to_string( minFrameBytes ) + ", an Ethernet header" );
   }
   return bytes;
}

std::string toHex( std::string_view bytes ) {
   static char const digits[] = "0123456789abcdef";
   std::string text;
   text.reserve( bytes.size() * 2 );
   for ( auto const character : bytes ) {
      auto const byte = static_cast< unsigned char >( character );
      text += digits[ byte >> 4 ];
      text += digits[ byte & 15 ];
   }
   return text;
}

} // namespace Settings
