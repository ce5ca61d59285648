// The condition "devices/NAMESPACE": valend does not know the devices of a namespace, or not all.
#pragma once

#include "platform/quill/Watch.h"
#include "types/KernelNetInfo.h"
#include "valend/base/Conditions.h"
#include "valend/kernel/Namespaces.h"

namespace Valend {

// Raised while the namespace cannot be watched, and from lost notifications until all devices have been
// read again. Not raised for a namespace that does not exist: that is a condition of its VRF.
class DeviceCondition final : public Quill::Reactor {
   QUILL_TRACKED( Valend::DeviceCondition )
 public:
   // `conditions` and `namespaces` must outlive this.
   DeviceCondition( Conditions & conditions, Namespaces const & namespaces,
                    Quill::Ptr< KernelNetInfo::Status const > status );

   char const * reactorName() const noexcept override { return "DeviceCondition"; }

   void handleError();
   void handleResyncs();
   void handleSynchronized();

 private:
   Namespaces const & namespaces_;
   Condition condition_;
   Quill::Watch<
      DeviceCondition, KernelNetInfo::Status const,
      Quill::On< KernelNetInfo::Status::errorAttr, &DeviceCondition::handleError >,
      Quill::On< KernelNetInfo::Status::resyncsAttr, &DeviceCondition::handleResyncs >,
      Quill::On< KernelNetInfo::Status::synchronizedAttr, &DeviceCondition::handleSynchronized > >
      status_;
};

} // namespace Valend
