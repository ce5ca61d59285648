// The options of each kind of goodbye frame, and how the frames are made of them.
#pragma once

#include "goodbye/Layers.h"
#include "valenctl/FrameSender.h"

#include <functional>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

// Makes the frames of a command line that has been read. Throws UsageError, and what FrameSender
// throws.
using FrameBuild = std::function< std::vector< Goodbye::Frame >( FrameSender const & ) >;

// Each adds the options of its kind to `app`; the result uses what they were given.
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
