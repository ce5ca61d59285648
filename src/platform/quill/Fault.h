// The fault boundary: it catches an exception that leaves a handler called by the framework.
//
// The writer of the change never sees it. The process's fault sink learns which reactor failed on
// what; without a sink the process ends with that text. A handler, setter or factory that is called
// directly throws to its caller as usual.
#pragma once

#include "platform/quill/Int.h"

#include <exception>
#include <string>
#include <typeindex>

namespace Quill {

// Where a fault happened: what failed, and the attribute that had changed. Compared by
// type; the names are for people.
struct FaultSource {
   std::type_index reactorType;
   char const * reactor;                           // "ConfigSm"
   std::type_index attributeType = typeid( void ); // the attribute's tag; void without one
   char const * attribute = "";                    // "vrf"
};

// That of `Reactor`'s handler for the attribute of tag `Tag`.
template < class Reactor, class Tag > FaultSource faultSource( char const * reactorName ) {
   return { typeid( Reactor ), reactorName, typeid( Tag ), Tag::name() };
}

struct Fault {
   FaultSource source;
   std::string key;  // the display form of the key, empty without a key
   std::string text; // what() of the exception
   std::exception_ptr exception;

   // Whether it happened in `Reactor`'s handler for the attribute of tag `Tag`.
   template < class Reactor, class Tag > bool isFrom() const noexcept {
      return source.reactorType == typeid( Reactor ) && source.attributeType == typeid( Tag );
   }
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

// What the exception says, by default the one being handled.
std::string exceptionText( std::exception_ptr const & exception = std::current_exception() );

// Reports the exception being handled. Call from a catch block only.
void reportFault( FaultSource const & source, std::string key );

// Runs `work` under the boundary; `keyText()` is asked for the key's text only after a fault. Returns
// whether it ended without one.
template < class Work, class KeyText >
bool underFaultBoundary( FaultSource const & source, KeyText const & keyText, Work const & work ) {
   try {
      work();
      return true;
   } catch ( ... ) {
      reportFault( source, keyText() );
      return false;
   }
}

} // namespace Quill
