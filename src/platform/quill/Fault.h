// The fault boundary: it catches an exception that leaves a handler called by the framework.
//
// The writer of the change never sees it. The process's fault sink learns which reactor failed on
// what; without a sink the process ends with that text. A handler, setter or factory that is called
// directly throws to its caller as usual.
#pragma once

#include "platform/quill/Int.h"

#include <exception>
#include <string>

namespace Quill {

struct Fault {
   std::string reactor;   // the reactor's class, "ConfigSm"
   std::string attribute; // the attribute that changed
   std::string key;       // the display form of the key; empty for an attribute without keys
   std::string text;      // what() of the exception
   std::exception_ptr exception;

   // "fault in ConfigSm on vrf red: <text>"
   std::string message() const;
};

class FaultSink {
 public:
   virtual ~FaultSink() = default;
   // Must not throw.
   virtual void fault( Fault const & fault ) noexcept = 0;
};

// Installs the process's sink, which must outlive its use; null removes it. Returns the old one.
FaultSink * faultSinkIs( FaultSink * sink ) noexcept;

// How many faults were reported since the process started.
U64 faults() noexcept;

// Reports the exception being handled. Call from a catch block only.
void reportFault( std::string reactor, std::string attribute, std::string key );

// Runs `work` under the boundary. Returns whether it ended without a fault.
template < class Work, class KeyText >
bool underFaultBoundary( char const * reactor, char const * attribute, KeyText const & keyText,
                         Work const & work ) {
   try {
      work();
      return true;
   } catch ( ... ) {
      reportFault( reactor, attribute, keyText() );
      return false;
   }
}

} // namespace Quill
