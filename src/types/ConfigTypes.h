// Valen::Config: the feature's configuration. Read only to the library.
//
// The agent configuration directory is a Quill::Dir of agent directories by agent name; each of
// these is a Quill::Dir that holds one Agent::MessageDir under a name of its own.
#pragma once

#include "platform/corvid/IntfId.h"
#include "platform/quill/Dir.h"

namespace Valen::Config {

// Exists while the feature is configured.
class GlobalConfig final : public Quill::Entity {
   QUILL_ENTITY( Valen::Config::GlobalConfig )
   QUILL_SINGLE( U16, shutdownDelayMs ) // how long a shutdown is held after its frames are sent
};

class ConfigDir final : public Quill::Entity {
   QUILL_ENTITY( Valen::Config::ConfigDir )
   QUILL_SINGLE( Quill::Ptr< GlobalConfig const >, globalConfig ) // null: the feature is off
};

namespace Agent {

// The frames that one agent has queued for one interface, in the order of sending.
class Message final : public Quill::Entity {
   QUILL_ENTITY( Valen::Config::Agent::Message )
 public:
   explicit Message( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_QUEUE( Quill::String, message ) // each string is one complete frame
};

// The frames of one agent, by interface. A Message is filled before it is put in.
class MessageDir final : public Quill::Entity {
   QUILL_ENTITY( Valen::Config::Agent::MessageDir )
   QUILL_MAP( Corvid::IntfId, Quill::Ptr< Message const >, message )
};

} // namespace Agent
} // namespace Valen::Config
