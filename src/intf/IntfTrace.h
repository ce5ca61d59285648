// The trace handle that the two reactors of this directory share.
#pragma once

#include "platform/trace/Trace.h"

namespace Valen::IntfTrace {

inline constexpr char const * traceUnit = "IntfSm";

inline Quill::TraceHandle & traceHandle() {
   static Quill::TraceHandle handle( traceUnit, 0 );
   return handle;
}

} // namespace Valen::IntfTrace
