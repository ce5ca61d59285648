// The trace facility: one call, two outputs, the same text.
//
// Every source unit has one trace handle, named after it; levels are switched on per handle with
// patterns, by the process and never by the library. A trace point whose level is off costs one
// branch and does not evaluate its arguments. One that is on writes its line, the function's full
// signature, ": " and the message, to the framework trace (the process's TraceSink, as text) and
// to the ring-buffer trace (Blipline, as binary values that its reader formats).
//
//   namespace { QUILL_TRACE_UNIT( "ConfigSm" ) }
//   ...
//   TRACE0( "vrf %s", vrfName );   // level 0: entry of a handler, with its key
//   TRACE1( "not initialized" );   // level 1: each decision
//
// The message is a format rather than a chain of `<<`, so that it is stored once, in the point's
// static description, and the ring carries the values alone.
#pragma once

#include "platform/trace/TraceLevels.h"
#include "platform/trace/Twinlog.h"

#include <array>
#include <chrono>

namespace Quill {

// One place in the source that traces. Static; lives for the whole process.
struct TracePoint {
   char const * unit;
   int line;
   U8 level;
   std::string_view signature;
   std::string_view format;
   // Where the ring in use has this point's description; for Blipline alone.
   U32 ringGeneration = 0;
   U32 ringIndex = 0;
};

// A line on its way to the framework trace. Valid during the call only.
struct TraceLine {
   TracePoint const & point;
   std::chrono::nanoseconds time; // on the monotonic clock
   std::string_view text;         // signature, ": ", message
};

// Where the framework trace goes: standard error, a file, a capturing sink in a test.
class TraceSink {
 public:
   virtual ~TraceSink() = default;
   virtual void line( TraceLine const & line ) noexcept = 0;
};

// Installs the process's sink, which must outlive its use; null removes it. Returns the old one.
TraceSink * traceSinkIs( TraceSink * sink ) noexcept;

// The levels of one source unit.
class TraceHandle {
 public:
   // `level`: the lowest level the handle has; part of the framework's signature, always 0 here.
   TraceHandle( char const * name, U8 level );
   ~TraceHandle();
   TraceHandle( TraceHandle const & ) = delete;
   TraceHandle & operator=( TraceHandle const & ) = delete;

   char const * name() const noexcept { return name_; }
   bool enabled( U8 level ) const noexcept { return levels_ >> level & 1u; }
   void levelsIs( U32 mask ) noexcept { levels_ = mask; }
   U32 levels() const noexcept { return levels_; }

   // All handles made so far; next() links them.
   static TraceHandle * first() noexcept;
   TraceHandle * next() const noexcept { return next_; }

 private:
   char const * const name_;
   U32 levels_ = 0; // bit n: level n is on
   TraceHandle * next_ = nullptr;
};

// Sets the levels of all handles, those made later included.
void traceLevelsIs( TraceLevels levels );
// The same, from patterns as text. Throws RangeException, and changes nothing, when they do not parse.
inline void traceLevelsIs( std::string_view patterns ) {
   traceLevelsIs( TraceLevels( patterns ) );
}
// The patterns that are active.
std::string traceLevels();

// Writes one line to both outputs. Called through the macros, when the level is on.
void traceWrite( TracePoint & point, std::span< Twinlog::Value const > values ) noexcept;

template < class... Args > void trace( TracePoint & point, Args const &... args ) {
   // One expression: the storage of the arguments that need one lives until the line is written.
   traceWrite( point, std::array< Twinlog::Value, sizeof...( Args ) >{
                         Twinlog::valueOf( args, Twinlog::Storage< Args >() )... } );
}

} // namespace Quill

// Gives a source unit its trace handle, made on first use. A trace point that is off costs two loads
// and two branches, so what makes the handle stays out of its way.
#define QUILL_TRACE_UNIT( unitName )                                                               \
   constexpr char const * traceUnit = unitName;                                                    \
   constinit ::Quill::TraceHandle * traceHandleMade = nullptr;                                     \
   [[gnu::noinline, gnu::cold]] ::Quill::TraceHandle & makeTraceHandle() {                         \
      static ::Quill::TraceHandle handle( traceUnit, 0 );                                          \
      traceHandleMade = &handle;                                                                   \
      return handle;                                                                               \
   }                                                                                               \
   [[gnu::always_inline]] inline ::Quill::TraceHandle & traceHandle() {                            \
      return traceHandleMade ? *traceHandleMade : makeTraceHandle();                               \
   }

#define QUILL_TRACE( level, format, ... )                                                          \
   do {                                                                                            \
      if ( traceHandle().enabled( level ) ) [[unlikely]] {                                         \
         static constinit ::Quill::TracePoint quillTracePoint{ traceUnit, __LINE__, level,         \
                                                               __PRETTY_FUNCTION__, format };      \
         ::Quill::trace( quillTracePoint __VA_OPT__(, ) __VA_ARGS__ );                             \
      }                                                                                            \
   } while ( false )

#define TRACE0( ... ) QUILL_TRACE( 0, __VA_ARGS__ )
#define TRACE1( ... ) QUILL_TRACE( 1, __VA_ARGS__ )
