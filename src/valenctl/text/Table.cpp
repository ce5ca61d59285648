#include "valenctl/text/Table.h"

#include <algorithm>

namespace Valenctl {

namespace {

// Counts characters, not bytes; the continuation bytes of UTF-8 and color codes have no width.
std::size_t width( std::string const & cell ) {
   std::size_t characters = 0;
   bool inColor = false;
   for ( char const c : cell ) {
      inColor = inColor || c == '\x1b';
      characters += !inColor && ( c & 0xc0 ) != 0x80;
      inColor = inColor && c != 'm';
   }
   return characters;
}

} // namespace

std::string Table::text() const {
   std::vector< std::size_t > widths( rows_.front().size() );
   for ( auto const & row : rows_ ) {
      for ( std::size_t i = 0; i < row.size(); ++i ) {
         widths[ i ] = std::max( widths[ i ], width( row[ i ] ) );
      }
   }
   std::string text;
   for ( auto const & row : rows_ ) {
      std::string line;
      for ( std::size_t i = 0; i < row.size(); ++i ) {
         line += row[ i ] + std::string( widths[ i ] - width( row[ i ] ) + 2, ' ' );
      }
      line.erase( line.find_last_not_of( ' ' ) + 1 );
      text += line + '\n';
   }
   return text;
}

} // namespace Valenctl
