#include "types/InterfaceTypes.h"

namespace Interface {

std::string DeviceIntfStatusDir::IntfStatusAndDeviceName::displayValue() const {
   if ( *this == IntfStatusAndDeviceName() ) {
      return "no device";
   }
   auto const index = std::to_string( ifIndex );
   std::string text;
   text.reserve( deviceName.length() + index.size() + 9 ); // one allocation: each handler traces it
   return text.append( deviceName.view() ).append( " (index " ).append( index ).append( ")" );
}

} // namespace Interface
