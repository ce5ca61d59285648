// The log line of a shutdown or a goodbye that has ended.
#pragma once

#include "valend/base/Log.h"
#include "valend/shutdown/ShutdownRecord.h"

namespace Valend {

// A warning when the link was not set down by valend, or frames did not leave; else information.
LogLevel levelOf( ShutdownRecord const & record ) noexcept;

// Which kind of event it is: see MessageIds.h.
char const * messageIdOf( ShutdownRecord const & record ) noexcept;

// MESSAGE_ID; INTERFACE, which is the kernel's name as in the lines of other programs; VALEN_INTERFACE,
// VALEN_NAMESPACE, VALEN_ENDING, VALEN_BY, VALEN_SENT, VALEN_FAILED, VALEN_HELD_MS, VALEN_TOTAL_MS,
// VALEN_UNFLUSHED_BYTES, VALEN_RESUMED; VALEN_LOGIN, VALEN_REASON, VALEN_WHY and VALEN_FAIL_REASON unless
// empty.
LogFields fieldsOf( ShutdownRecord const & record );

// Writes the line, and the fields to the system's journal.
inline void logShutdown( ShutdownRecord const & record ) {
   log( levelOf( record ), record.summary(), fieldsOf( record ) );
}

} // namespace Valend
