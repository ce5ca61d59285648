#include "valenctl/Table.h"

#include <algorithm>

namespace Valenctl {

namespace {

// Characters, not bytes: what continues a UTF-8 character takes no room, nor does a colour.
std::size_t width( std::string const & cell ) {
   std::size_t characters = 0;
   bool inColour = false;
   for ( char const c : cell ) {
      inColour = inColour || c == '\x1b';
      characters += !inColour && ( c & 0xc0 ) != 0x80;
      inColour = inColour && c != 'm';
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
