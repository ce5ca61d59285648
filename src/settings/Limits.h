// How much a configuration may be: what is read from its files, and what is made of it. They keep a file that is
// wrong, or hostile, from taking all memory.
#pragma once

#include <cstddef>

namespace Settings {

// All files together, in bytes.
inline constexpr std::size_t maxConfigBytes = 16u << 20;
// A file that valend wrote itself, of a configuration within these limits.
inline constexpr std::size_t maxWrittenBytes = 64u << 20;

// How deep lists and mappings may be nested in each other. A valid configuration needs 6.
inline constexpr std::size_t maxDepth = 100;

// The values of all files together: each key, text, list and mapping is one.
inline constexpr std::size_t maxValues = 500'000;

// The frames of all agents together, with each alias ("*name") written out.
inline constexpr std::size_t maxConfigFrames = 250'000;
inline constexpr std::size_t maxConfigFrameBytes = 16u << 20;

// The errors that are listed; the others are counted.
inline constexpr std::size_t maxErrors = 100;

} // namespace Settings
