#include "settings/Sources.h"

#include "settings/ConfigReader.h"

namespace Settings {

std::string Place::text() const {
   return line ? file + ":" + std::to_string( line ) + ":" + std::to_string( column ) : file;
}

std::string ConfigError::message() const {
   auto message = place.text() + ": " + text;
   for ( auto & character : message ) { // text quoted from the file may contain anything
      if ( static_cast< unsigned char >( character ) < 0x20 ) {
         character = ' ';
      }
   }
   return message;
}

} // namespace Settings
