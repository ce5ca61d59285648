#include "valend/ShutdownRecord.h"

namespace Valend {

char const * ShutdownRecord::endingText() const noexcept {
   switch ( ending ) {
   case Ending::down:
      return "down";
   case Ending::aborted:
      return "aborted";
   case Ending::alreadyDown:
      return "already-down";
   case Ending::noDevice:
      return "no-device";
   case Ending::failed:
      return "failed";
   case Ending::running:
      break;
   }
   return "running";
}

std::string ShutdownRecord::summary() const {
   auto text = interface + ": shutdown by " + by + ": ";
   if ( withDelay ) {
      text += std::to_string( sent ) + ( sent == 1 ? " frame sent, " : " frames sent, " );
      if ( failed ) {
         text += std::to_string( failed ) + " not (" + failReason + "), ";
      }
      text += "held " + std::to_string( held.count() ) + " ms, ";
   }
   if ( unflushedBytes ) {
      text += std::to_string( unflushedBytes ) + " bytes unsent in the socket, ";
   }
   return text + endingText() + ( why.empty() ? "" : " (" + why + ")" );
}

} // namespace Valend
