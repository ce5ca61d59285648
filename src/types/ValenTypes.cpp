#include "types/ValenTypes.h"

namespace Valen {

Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName const & defaultDevice() {
   static Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName const device;
   return device;
}

Quill::Ptr< AllIntf > allIntfFactory() {
   return Quill::make< AllIntf >();
}

Quill::Ptr< AllVrf > allVrfFactory() {
   return Quill::make< AllVrf >();
}

} // namespace Valen
