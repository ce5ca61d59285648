#include "types/InterfaceTypes.h"

namespace Interface {

std::string DeviceIntfStatusDir::IntfStatusAndDeviceName::displayValue() const {
   if ( *this == IntfStatusAndDeviceName() ) {
      return "no device";
   }
   return deviceName.stdString() + " (index " + std::to_string( ifIndex ) + ")";
}

} // namespace Interface
