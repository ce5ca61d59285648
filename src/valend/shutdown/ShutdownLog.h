// One line in the log for each shutdown that has ended.
#pragma once

#include "valend/base/Log.h"
#include "valend/shutdown/ShutdownRecord.h"

namespace Valend {

// A warning when something did not go as it should.
LogLevel levelOf( ShutdownRecord const & record ) noexcept;

// INTERFACE, VALEN_ENDING, VALEN_BY, VALEN_SENT, VALEN_FAILED, VALEN_HELD_MS, VALEN_TOTAL_MS,
// VALEN_UNFLUSHED_BYTES, VALEN_RESUMED; VALEN_WHY and VALEN_FAIL_REASON when there is one.
LogFields fieldsOf( ShutdownRecord const & record );

inline void logShutdown( ShutdownRecord const & record ) {
   log( levelOf( record ), record.summary(), fieldsOf( record ) );
}

} // namespace Valend
