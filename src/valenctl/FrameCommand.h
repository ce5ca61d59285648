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
   std::string pcap;          // the file to write; "-" is standard output
   std::string yamlInterface; // configuration for this interface
};

// Adds the command and a command of its own for each kind to `parent`. `options` must outlive it.
CLI::App * addFrame( CLI::App & parent, FrameOptions & options );

// The frames that were asked for, in order of sending. Throws UsageError for an incomplete command,
// and std::runtime_error when the device or one of its addresses is not there.
std::vector< Frames::Frame > framesOf( FrameOptions const & options );

// Builds the frames and writes them as asked: in hexadecimal, one a line, or else. Whatever goes
// wrong is said in one line to `err`.
Exit runFrame( FrameOptions const & options, std::ostream & out, std::ostream & err );

} // namespace Valenctl
