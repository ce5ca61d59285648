#include "valend/configuration/DatabaseText.h"

#include "settings/Hex.h"

#include <sstream>

namespace Valend {

namespace {

constexpr char const * entitiesHead = "# Entities of a database, written by valend: ";

// So that no word is empty.
std::string wordOf( std::string const & bytes ) {
   return "x" + Settings::toHex( bytes );
}

int digitOf( char character ) {
   return character >= '0' && character <= '9'   ? character - '0'
          : character >= 'a' && character <= 'f' ? character - 'a' + 10
                                                 : -1;
}

std::optional< std::string > bytesOf( std::string const & word ) {
   if ( word.empty() || word[ 0 ] != 'x' || word.size() % 2 == 0 ) {
      return std::nullopt;
   }
   std::string bytes;
   bytes.reserve( word.size() / 2 );
   for ( std::size_t i = 1; i < word.size(); i += 2 ) {
      auto const high = digitOf( word[ i ] );
      auto const low = digitOf( word[ i + 1 ] );
      if ( high < 0 || low < 0 ) {
         return std::nullopt;
      }
      bytes += static_cast< char >( high * 16 + low );
   }
   return bytes;
}

// The entity of a line; nothing when it is damaged.
std::optional< Settings::Entities::value_type > entityOfLine( std::string const & line ) {
   std::istringstream words( line );
   std::string word;
   words >> word;
   auto const key = bytesOf( word );
   Settings::Fields fields;
   for ( std::string value; words >> word; ) {
      words >> value;
      auto const name = bytesOf( word );
      auto const bytes = bytesOf( value );
      if ( !words || !name || !bytes ) {
         return std::nullopt;
      }
      fields.emplace( *name, *bytes );
   }
   if ( !key ) {
      return std::nullopt;
   }
   return Settings::Entities::value_type( *key, std::move( fields ) );
}

} // namespace

std::string databaseText( std::string const & origin, Settings::Entities const & entities ) {
   auto text = entitiesHead + origin + "\n";
   for ( auto const & [ key, fields ] : entities ) {
      text += wordOf( key );
      for ( auto const & [ name, value ] : fields ) {
         text += " " + wordOf( name ) + " " + wordOf( value );
      }
      text += "\n";
   }
   return text;
}

std::optional< Settings::Entities > entitiesOfText( std::string const & origin,
                                                    std::string const & text ) {
   std::istringstream lines( text );
   std::string line;
   if ( !std::getline( lines, line ) || line != entitiesHead + origin || !text.ends_with( '\n' ) ) {
      return std::nullopt;
   }
   Settings::Entities entities;
   while ( std::getline( lines, line ) ) {
      auto entity = entityOfLine( line );
      if ( !entity ) {
         return std::nullopt;
      }
      entities.insert( std::move( *entity ) );
   }
   return entities;
}

} // namespace Valend
