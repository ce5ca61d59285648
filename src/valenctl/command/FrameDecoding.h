// Frames in words, which `frame decode` and `messages show` print.
#pragma once

#include "settings/Frames.h"
#include "valenctl/text/Exit.h"
#include <functional>
#include <string>

namespace Valenctl {

class Session;

// What is printed below the line of a frame; `number` counts from 1.
using FrameNotes = std::function< std::string( std::size_t number, std::string const & frame ) >;

// Prints what each frame says. Returns Exit::failed if one of them is malformed.
Exit printDecoded(
   Session & session, Settings::FrameList const & frames,
   FrameNotes const & notes = []( auto, auto const & ) { return ""; } );

} // namespace Valenctl
