#include "valend/shutdown/ShutdownLog.h"

#include "valend/base/MessageIds.h"

namespace Valend {

using Ending = ShutdownRecord::Ending;

LogLevel levelOf( ShutdownRecord const & record ) noexcept {
   switch ( record.ending ) {
   case Ending::failed:
   case Ending::wentDown:
   case Ending::expired:
      return LogLevel::warning;
   case Ending::running:
   case Ending::down:
   case Ending::aborted:
   case Ending::alreadyDown:
   case Ending::noDevice:
   case Ending::rebooted:
   case Ending::goodbye:
      break;
   }
   return record.failed || record.unflushedBytes ? LogLevel::warning : LogLevel::info;
}

char const * messageIdOf( ShutdownRecord const & record ) noexcept {
   switch ( record.ending ) {
   case Ending::aborted:
      return MessageIds::shutdownAborted;
   case Ending::noDevice:
   case Ending::failed:
      return MessageIds::shutdownFailed;
   case Ending::wentDown:
      return MessageIds::setDownOutside;
   case Ending::rebooted:
   case Ending::expired:
      return MessageIds::shutdownExpired;
   case Ending::goodbye:
      return MessageIds::goodbye;
   case Ending::running:
   case Ending::down:
   case Ending::alreadyDown:
      break;
   }
   return MessageIds::shutdownDone;
}

LogFields fieldsOf( ShutdownRecord const & record ) {
   LogFields fields{ { "MESSAGE_ID", messageIdOf( record ) },
                     { "INTERFACE", record.place.device },
                     { "VALEN_INTERFACE", record.interface },
                     { "VALEN_NAMESPACE", record.place.netNs },
                     { "VALEN_ENDING", record.endingText() },
                     { "VALEN_BY", record.request.by },
                     { "VALEN_SENT", std::to_string( record.sent ) },
                     { "VALEN_FAILED", std::to_string( record.failed ) },
                     { "VALEN_HELD_MS", std::to_string( record.held.count() ) },
                     { "VALEN_TOTAL_MS", std::to_string( record.total.count() ) },
                     { "VALEN_UNFLUSHED_BYTES", std::to_string( record.unflushedBytes ) },
                     { "VALEN_RESUMED", record.resumed ? "1" : "0" } };
   auto const addUnlessEmpty = [ & ]( char const * name, std::string const & value ) {
      if ( !value.empty() ) {
         fields.emplace_back( name, value );
      }
   };
   addUnlessEmpty( "VALEN_LOGIN", record.request.login );
   addUnlessEmpty( "VALEN_REASON", record.request.reason );
   addUnlessEmpty( "VALEN_WHY", record.why );
   addUnlessEmpty( "VALEN_FAIL_REASON", record.failReason );
   addUnlessEmpty( "VALEN_SPEAKERS", record.mutedText() );
   return fields;
}

} // namespace Valend
