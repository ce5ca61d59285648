// Tells when devices are set up and down, by whomever, and when they come and go.
#pragma once

#include "types/KernelNetInfo.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <map>

namespace Valend {

class LinkWatch final {
 public:
   // `up` is nothing when the device is gone. Called inside a notification, for every change and
   // once for a device that is new: note it, and act later.
   using Seen = std::function< void( LinkPlace const & place, std::optional< bool > up ) >;

   LinkWatch();
   ~LinkWatch();
   LinkWatch( LinkWatch const & ) = delete;
   LinkWatch & operator=( LinkWatch const & ) = delete;

   void seenIs( Seen seen ) { seen_ = std::move( seen ); }
   // Watches the devices of the namespace from now on; null ends that, and is not told.
   void follow( std::string const & netNs, Quill::Ptr< KernelNetInfo::Status const > status );

 private:
   class NamespaceSm;
   class DeviceSm;

   Seen seen_;
   std::map< std::string, Quill::Ptr< NamespaceSm > > namespaces_;
};

} // namespace Valend
