// Reports when devices are set up or down, by valend or another process, and when they appear or
// disappear.
#pragma once

#include "types/KernelNetInfo.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <map>

namespace Valend {

class LinkWatch final {
 public:
   // Called inside a notification, for every change and once for a new device: note it and act later.
   using Seen = std::function< void( LinkPlace const & place, LinkSeen seen ) >;

   LinkWatch();
   ~LinkWatch();
   LinkWatch( LinkWatch const & ) = delete;
   LinkWatch & operator=( LinkWatch const & ) = delete;

   void seenIs( Seen seen ) { seen_ = std::move( seen ); }
   // Watches the devices of the namespace from now on; null ends that, without a report.
   void follow( std::string const & netNs, Quill::Ptr< KernelNetInfo::Status const > status );

 private:
   class NamespaceSm;
   class DeviceSm;

   void report( LinkPlace const & place, LinkSeen seen ) const;

   Seen seen_;
   std::map< std::string, Quill::Ptr< NamespaceSm > > namespaces_;
};

} // namespace Valend
