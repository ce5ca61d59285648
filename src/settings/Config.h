// What the operator configures, as plain values. Made by ConfigReader, put in force by Feeder.
#pragma once

#include "platform/quill/Int.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Settings {

// The VRF that every agent has: the agent's own network namespace.
inline constexpr char const * defaultVrf = "default";

struct InterfaceConfig {
   std::string name;
   std::string device;        // the kernel device that carries it
   std::string vrf;           // a configured VRF, or "default"
   bool shutdownDelay = true; // whether its shutdown may be delayed
   bool operator==( InterfaceConfig const & ) const = default;
};

// The frames that one agent has queued, in order of sending. Each is the complete bytes of one.
using Frames = std::vector< std::string >;

// How the process runs; what the command line says goes before.
struct ProcessConfig {
   std::optional< std::string > socket;      // of the control API
   std::optional< std::string > netNsFolder; // a further folder of named namespaces
   std::optional< std::string > traceLevels; // "ConfigSm/0-1,Intf*/0"
   std::optional< std::string > traceFile;
   std::optional< std::string > traceRing;
   std::optional< std::string > stateDirectory; // where shutdowns are written down
   std::optional< std::string > metricsFile;    // where the metrics go
   bool operator==( ProcessConfig const & ) const = default;
};

// Valid as a whole: every name is bounded, every reference leads somewhere, no VRF shares its
// namespace, no device of a namespace carries two interfaces.
struct Config {
   std::optional< U16 > shutdownDelayMs;                            // nothing: the feature is off
   std::map< std::string, std::string > vrfs;                       // name to namespace
   std::map< std::string, InterfaceConfig > interfaces;             // by name
   std::map< std::string, std::map< std::string, Frames > > agents; // by agent, then interface
   ProcessConfig process;
   bool operator==( Config const & ) const = default;

   // The namespace of a configured VRF, or of "default".
   std::string const & netNsOf( std::string const & vrf ) const;
   // Whether any agent has frames for the interface.
   bool hasFrames( std::string const & interface ) const;
   // "3 interfaces, 2 VRFs, 2 agents", the default VRF counted.
   std::string summary() const;
};

} // namespace Settings
