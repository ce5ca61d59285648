#include "platform/quill/Fault.h"

#include "platform/quill/Assert.h"

#include <utility>

namespace Quill {

namespace {

FaultSink * sink = nullptr;
U64 faultCount = 0;

} // namespace

std::string Fault::message() const {
   auto message = std::string( "fault in " ) + source.reactor;
   if ( *source.attribute ) {
      message += std::string( " on " ) + source.attribute;
   }
   if ( !key.empty() ) {
      message += " " + key;
   }
   return message + ": " + text;
}

FaultSink * faultSinkIs( FaultSink * newSink ) noexcept {
   return std::exchange( sink, newSink );
}

U64 faults() noexcept {
   return faultCount;
}

std::string exceptionText( std::exception_ptr const & exception ) {
   try {
      std::rethrow_exception( exception );
   } catch ( std::exception const & e ) {
      return e.what();
   } catch ( ... ) {
      return "exception of an unknown type";
   }
}

void reportFault( FaultSource const & source, std::string key ) {
   auto const exception = std::current_exception();
   ++faultCount;
   Fault const fault{ source, std::move( key ), exceptionText( exception ), exception };
   if ( !sink ) {
      abortWith( fault.message().c_str() );
   }
   sink->fault( fault );
}

} // namespace Quill
