// What the operator configures, as plain values. ConfigReader reads it, Feeder applies it.
#pragma once

#include "platform/quill/Int.h"
#include "settings/Frames.h"
#include "settings/Goodbyes.h"
#include "settings/ProcessSettings.h"

#include <map>
#include <optional>
#include <string>

namespace Settings {

// The VRF that always exists: the network namespace of valend itself.
inline constexpr char const * defaultVrf = "default";

struct InterfaceConfig {
   std::string name;
   std::string device;                      // the kernel device that carries it
   std::string vrf;                         // a configured VRF, or "default"
   bool shutdownDelay = true;               // whether its shutdown may be delayed
   std::optional< Goodbyes > goodbyes = {}; // nothing: those of all interfaces
   bool operator==( InterfaceConfig const & ) const = default;
};

// Valid as a whole: every name is bounded, every reference names something that exists, no two VRFs
// share a namespace, no device of a VRF carries two interfaces.
struct Config {
   std::optional< U16 > shutdownDelayMs;                // nothing: the delay is disabled
   Goodbyes goodbyes;                                   // of interfaces without their own
   std::map< std::string, std::string > vrfs;           // name to namespace
   std::map< std::string, InterfaceConfig > interfaces; // by name
   std::map< std::string, std::map< std::string, Frames > > agents; // by agent, then interface
   ProcessConfig process;                                           // from the files alone
   bool operator==( Config const & ) const = default;

   // The namespace of a configured VRF, or of "default".
   std::string const & netNsOf( std::string const & vrf ) const;
   // Whether any agent has frames for the interface.
   bool hasFrames( std::string const & interface ) const;
   // The goodbyes that valend learns on the interface; none if it is not configured.
   Goodbyes const & goodbyesOf( std::string const & interface ) const;
   // "3 interfaces, 2 VRFs, 2 agents", the default VRF counted.
   std::string summary() const;
};

} // namespace Settings
