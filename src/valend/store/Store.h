// The daemon's state store: the tree of entities that the library reads and writes, each with a path.
//
//   config/valen        Valen::Config::ConfigDir         config/agents/NAME/messages   an agent's
//   interface/config    Interface::AllIntfConfigDir      interface/status, interface/local
//   l3/status           L3::Intf::StatusDir              vrf/status
//   status              Valen::Status::StatusDir         model/interfaces, model/vrfs
//
// "model" holds the library's internal records, for troubleshooting.
#pragma once

#include "platform/orrery/EntityManager.h"
#include "types/ValenTypes.h"

namespace Valend {

struct Store {
   Store();
   ~Store();
   Store( Store const & ) = delete;
   Store & operator=( Store const & ) = delete;

   Quill::Ptr< Orrery::EntityManager > const entityManager;
   Quill::Ptr< Valen::Config::ConfigDir > const configDir;
   // In configDir while the delay is enabled.
   Quill::Ptr< Valen::Config::GlobalConfig > const globalConfig;
   Quill::Ptr< Quill::Dir > const agentConfigDir;
   Quill::Ptr< Interface::AllIntfConfigDir > const allIntfConfigDir;
   Quill::Ptr< Interface::AllIntfStatusDir > const allIntfStatusDir;
   Quill::Ptr< Interface::AllIntfStatusLocalDir > const allIntfStatusLocalDir;
   Quill::Ptr< L3::Intf::StatusDir > const l3IntfStatusDir;
   Quill::Ptr< Ip::AllVrfStatusLocal > const allVrfStatusLocal;
   Quill::Ptr< Valen::Status::StatusDir > const statusDir;
   Quill::Ptr< Valen::AllIntf > const allIntf;
   Quill::Ptr< Valen::AllVrf > const allVrf;

   // The directory of an agent's messages; null when the agent has none.
   Quill::Ptr< Valen::Config::Agent::MessageDir > messageDir( std::string const & agent ) const;
};

} // namespace Valend
