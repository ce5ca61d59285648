// The options of each kind of goodbye frame, and how frames are built from them.
#pragma once

#include "goodbye/Layers.h"
#include "valenctl/frame/FrameSender.h"

#include <functional>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

// Frames in order of sending, and what the operator should know about them, a line each.
struct BuiltFrames {
   BuiltFrames( std::vector< Goodbye::Frame > built, std::vector< std::string > toKnow = {} )
       : frames( std::move( built ) ), notes( std::move( toKnow ) ) {}

   std::vector< Goodbye::Frame > frames;
   std::vector< std::string > notes;
};

// Builds the frames, once the command line has been parsed. Throws UsageError, and what FrameSender
// throws.
using FrameBuild = std::function< BuiltFrames( FrameSender const & ) >;

// Each adds the options of its kind to `app`; the result uses their values.
FrameBuild lldpBuild( CLI::App & app );
FrameBuild raBuild( CLI::App & app );
FrameBuild vrrp2Build( CLI::App & app );
FrameBuild vrrp3Build( CLI::App & app );
FrameBuild pimBuild( CLI::App & app );
FrameBuild ospfBuild( CLI::App & app );
FrameBuild igmpBuild( CLI::App & app );
FrameBuild mdnsBuild( CLI::App & app );
FrameBuild ripBuild( CLI::App & app );
FrameBuild oamBuild( CLI::App & app );
FrameBuild lacpBuild( CLI::App & app );

} // namespace Valenctl
