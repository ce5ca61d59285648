#include "valend/kernel/DeviceCondition.h"

namespace Valend {

DeviceCondition::DeviceCondition( Conditions & conditions, Namespaces const & namespaces,
                                  Quill::Ptr< KernelNetInfo::Status const > status )
    : namespaces_( namespaces ),
      condition_( conditions, "devices/" + status->netNsName().stdString() ),
      status_( *this, std::move( status ) ) {
   handleError();
}

void DeviceCondition::handleError() {
   auto const & error = status_.get()->error();
   bool const missing =
      !error.empty() && namespaces_.look( status_.get()->netNsName().stdString() ).missing;
   condition_.update( missing ? "" : error.stdString() );
}

void DeviceCondition::handleResyncs() {
   condition_.raise( "notifications of the kernel were lost; reading all devices again" );
}

void DeviceCondition::handleSynchronized() {
   if ( status_.get()->synchronized() ) {
      condition_.clear();
   }
}

} // namespace Valend
