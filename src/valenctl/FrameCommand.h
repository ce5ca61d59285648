// `valenctl frame`: goodbye frames of other protocols, ready to be queued.
#pragma once

#include "valenctl/FrameBuilds.h"

#include <iosfwd>
#include <string>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

enum class Exit : int;
struct FrameKind;

struct FrameOptions {
   FrameKind const * kind = nullptr;
   FrameBuild build; // of that kind
   SenderOptions sender;
   std::string pcap;           // the file to write; "-" is standard output
   std::string yamlInterface;  // configuration for this interface
   std::string queueInterface; // the agent's interface to queue the frames for
   std::string agent;          // as whose frames; empty: the kind's name

   std::string queueAgent() const;
};

// Adds the command and a command of its own for each kind to `parent`. `options` must outlive it.
CLI::App * addFrame( CLI::App & parent, FrameOptions & options );

// Each frame's hexadecimal digits.
std::vector< std::string > hexOf( std::vector< Goodbye::Frame > const & frames );

// Builds the frames, in order of sending, and hands them to `use`. An incomplete command, or a device
// or an address that is not there, is said in one line to `err`; then `use` is not called.
using FrameUse = std::function< Exit( std::vector< Goodbye::Frame > const & ) >;
Exit useFrames( FrameOptions const & options, FrameUse const & use, std::ostream & err );

// Writes them as asked: in hexadecimal, one a line, or else.
Exit runFrame( FrameOptions const & options, std::ostream & out, std::ostream & err );

} // namespace Valenctl
