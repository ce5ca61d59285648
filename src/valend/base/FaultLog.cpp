#include "valend/base/FaultLog.h"

#include "valend/base/Log.h"

namespace Valend {

FaultLog::FaultLog( Observer observer )
    : observer_( std::move( observer ) ), old_( Quill::faultSinkIs( this ) ) {}

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
   observer_( fault );
}

} // namespace Valend
