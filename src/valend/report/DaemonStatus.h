// What the status says of the daemon itself, beside its interfaces.
#pragma once

#include "valend/base/FaultLog.h"
#include "valend/report/StatusReport.h"

namespace Valend {

class DaemonStatus {
 public:
   // All must outlive this.
   DaemonStatus( Store const & store, Feeder const & feeder, FaultLog const & faults,
                 Conditions const & conditions, StatusReport const & report )
       : store_( store ), feeder_( feeder ), faults_( faults ), conditions_( conditions ),
         report_( report ) {}

   // The reply to the API's method Status, without "interfaces".
   Json json() const;

 private:
   Store const & store_;
   Feeder const & feeder_;
   FaultLog const & faults_;
   Conditions const & conditions_;
   StatusReport const & report_;
};

} // namespace Valend
