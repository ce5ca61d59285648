#include "valend/base/FaultLog.h"

#include "valend/base/Log.h"

namespace Valend {

FaultLog::FaultLog( VrfFailed vrfFailed )
    : vrfFailed_( std::move( vrfFailed ) ), old_( Quill::faultSinkIs( this ) ) {}

FaultLog::~FaultLog() {
   Quill::faultSinkIs( old_ );
}

void FaultLog::fault( Quill::Fault const & fault ) noexcept {
   ++count_;
   auto const text = fault.message();
   log( LogLevel::error, text );
   texts_.push_back( text );
   if ( texts_.size() > keptTexts ) {
      texts_.pop_front();
   }
   // The main reactor's VRFs are its containers, with their endpoints.
   if ( fault.reactor == "ConfigSm" && fault.attribute == "vrf" ) {
      vrfFailed_( fault.key, fault.text );
   }
}

} // namespace Valend
