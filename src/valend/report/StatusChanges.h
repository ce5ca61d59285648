// Notices what may change the status of an interface: changes of the store and of the kernel's devices.
//
// Other causes, such as the time that is left of a delay, are not noticed.
#pragma once

#include "types/KernelNetInfo.h"
#include "valend/configuration/Feeder.h"
#include "valend/kernel/LinkPort.h"

#include <functional>
#include <map>
#include <memory>

namespace Valend {

class StatusChanges {
 public:
   // Both are called inside notifications.
   struct Changed {
      std::function< void( std::string const & interface ) > interface;
      std::function< void( LinkPlace const & place ) > device;
   };

   // Both must outlive this.
   StatusChanges( Store const & store, Feeder const & feeder, Changed changed );
   ~StatusChanges();
   StatusChanges( StatusChanges const & ) = delete;
   StatusChanges & operator=( StatusChanges const & ) = delete;

   // Follows the devices of the namespaces that are configured and known now. To be called now and then:
   // a new namespace is not noticed.
   void followNamespaces();

 private:
   class Follower;
   class Devices;

   void follow( std::string const & interface );

   Store const & store_;
   Feeder const & feeder_;
   Changed const changed_;
   std::vector< std::unique_ptr< Follower > > dirs_;
   std::map< std::string, std::unique_ptr< Follower > > interfaces_; // on their status entries
   std::map< std::string, std::unique_ptr< Devices > > namespaces_;
};

} // namespace Valend
