// All entity types of this directory.
#include "platform/quill/EntityTables.h"
#include "types/ConfigTypes.h"
#include "types/InterfaceTypes.h"
#include "types/IpTypes.h"
#include "types/KernelNetInfo.h"
#include "types/L3Types.h"
#include "types/StatusTypes.h"
#include "types/ValenTypes.h"

QUILL_ENTITY_TABLES( L3::Intf::Status )
QUILL_ENTITY_TABLES( L3::Intf::StatusDir )
QUILL_ENTITY_TABLES( Ip::VrfStatusLocal )
QUILL_ENTITY_TABLES( Ip::AllVrfStatusLocal )
QUILL_ENTITY_TABLES( Interface::IntfConfig )
QUILL_ENTITY_TABLES( Interface::AllIntfConfigDir )
QUILL_ENTITY_TABLES( Interface::IntfStatus )
QUILL_ENTITY_TABLES( Interface::AllIntfStatusDir )
QUILL_ENTITY_TABLES( Interface::IntfStatusLocal )
QUILL_ENTITY_TABLES( Interface::AllIntfStatusLocalDir )
QUILL_ENTITY_TABLES( Interface::DeviceIntfStatusDir )
QUILL_ENTITY_TABLES( Interface::DeviceVrfIntfStatusDir )
QUILL_ENTITY_TABLES( Interface::VrfDeviceIntfStatusDir )
QUILL_ENTITY_TABLES( KernelNetInfo::Interface )
QUILL_ENTITY_TABLES( KernelNetInfo::Status )
QUILL_ENTITY_TABLES( Valen::Config::GlobalConfig )
QUILL_ENTITY_TABLES( Valen::Config::ConfigDir )
QUILL_ENTITY_TABLES( Valen::Config::Agent::Message )
QUILL_ENTITY_TABLES( Valen::Config::Agent::MessageDir )
QUILL_ENTITY_TABLES( Valen::Status::IntfStatus )
QUILL_ENTITY_TABLES( Valen::Status::StatusDir )
QUILL_ENTITY_TABLES( Valen::IntfMessage )
QUILL_ENTITY_TABLES( Valen::Intf )
QUILL_ENTITY_TABLES( Valen::AllIntf )
QUILL_ENTITY_TABLES( Valen::VrfL3Intf )
QUILL_ENTITY_TABLES( Valen::Vrf )
QUILL_ENTITY_TABLES( Valen::AllVrf )
