#include "valend/shutdown/ShutdownLog.h"

namespace Valend {

LogLevel levelOf( ShutdownRecord const & record ) noexcept {
   using Ending = ShutdownRecord::Ending;
   switch ( record.ending ) {
   case Ending::failed:
   case Ending::wentDown:
      return LogLevel::warning;
   case Ending::running:
   case Ending::down:
   case Ending::aborted:
   case Ending::alreadyDown:
   case Ending::noDevice:
   case Ending::rebooted:
      break;
   }
   return record.failed || record.unflushedBytes ? LogLevel::warning : LogLevel::info;
}

LogFields fieldsOf( ShutdownRecord const & record ) {
   LogFields fields{ { "INTERFACE", record.interface },
                     { "VALEN_ENDING", record.endingText() },
                     { "VALEN_BY", record.by },
                     { "VALEN_SENT", std::to_string( record.sent ) },
                     { "VALEN_FAILED", std::to_string( record.failed ) },
                     { "VALEN_HELD_MS", std::to_string( record.held.count() ) },
                     { "VALEN_TOTAL_MS", std::to_string( record.total.count() ) },
                     { "VALEN_UNFLUSHED_BYTES", std::to_string( record.unflushedBytes ) },
                     { "VALEN_RESUMED", record.resumed ? "1" : "0" } };
   if ( !record.why.empty() ) {
      fields.emplace_back( "VALEN_WHY", record.why );
   }
   if ( !record.failReason.empty() ) {
      fields.emplace_back( "VALEN_FAIL_REASON", record.failReason );
   }
   return fields;
}

} // namespace Valend
