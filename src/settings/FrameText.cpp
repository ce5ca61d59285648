#include "settings/FrameText.h"

#include "settings/Counted.h"
#include "settings/FrameFile.h"

namespace Settings {

namespace {

// The value of a base64 digit; -1 for any other character.
int digit( char character ) {
   static constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
   auto const found = digits.find( character );
   return found == digits.npos ? -1 : static_cast< int >( found );
}

std::string requireHeader( std::string frame ) {
   if ( frame.size() < minFrameBytes ) {
      throw FrameError( "frame of " + counted( frame.size(), "byte" ) + "; expected at least " +
                        std::to_string( minFrameBytes ) + ", an Ethernet header" );
   }
   return frame;
}

// Removes `prefix` from the front of `text`. Returns whether it was there.
bool takePrefix( std::string_view & text, std::string_view prefix ) {
   bool const there = text.starts_with( prefix );
   text.remove_prefix( there ? prefix.size() : 0 );
   return there;
}

} // namespace

std::string bytesFromBase64( std::string_view text ) {
   std::string bytes;
   unsigned bits = 0; // of the current group of four digits
   unsigned digits = 0, padding = 0;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      if ( std::string_view( " \t\r\n" ).find( text[ i ] ) != std::string_view::npos ) {
         continue;
      }
      auto const value = digit( text[ i ] );
      if ( ( value < 0 && text[ i ] != '=' ) || ( value >= 0 && padding ) ) {
         throw FrameError( "character " + std::to_string( i + 1 ) +
                           " after \"base64:\" is not base64" );
      }
      padding += value < 0;
      bits = bits << 6 | static_cast< unsigned >( value < 0 ? 0 : value );
      if ( ++digits % 4 == 0 ) {
         for ( int const shift : { 16, 8, 0 } ) {
            bytes += static_cast< char >( bits >> shift & 0xff );
         }
         bits = 0;
      }
   }
   if ( digits % 4 || padding > 2 ) {
      throw FrameError(
         "base64 text of " + counted( digits, "character" ) + ", " + std::to_string( padding ) +
         " of them \"=\"; expected groups of four, the last with at most two \"=\"" );
   }
   bytes.resize( bytes.size() - padding );
   return bytes;
}

FrameList framesOf( std::string_view text, std::string const & directory ) {
   if ( takePrefix( text, "base64:" ) ) {
      return { requireHeader( bytesFromBase64( text ) ) };
   }
   if ( takePrefix( text, "pcap:" ) || takePrefix( text, "pcapng:" ) ) {
      return framesFromFile( text, directory );
   }
   return { frameFromHex( text ) };
}

} // namespace Settings
