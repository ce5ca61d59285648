// The methods that show what is: the status, what an interface lacks, the history, counters.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/api/SlowAnswer.h"
#include "valend/report/DaemonStatus.h"

namespace Valend {

class StatusMethods final : public MethodGroup {
 public:
   // Both must outlive this.
   StatusMethods( Parts const & parts, StatusReport const & report )
       : parts_( parts ), report_( report ),
         daemon_( parts.store, parts.feeder, parts.faults, parts.conditions, report ),
         all_( parts.work, parts.scheduler, "status", [ this ] { return allInterfaces(); } ) {}

   std::vector< Method > methods() override;

 private:
   using Text = std::optional< std::string >;

   void status( Call const & call, Text const & interface );
   SlowAnswer::Part allInterfaces() const;
   void explain( Call const & call, std::string const & interface );
   void history( Call const & call, std::optional< std::vector< std::string > > const & interfaces,
                 std::optional< U64 > last, std::optional< U64 > sinceMs );
   void metrics( Call const & call, std::optional< MetricsFormat > const & format );
   void memory( Call const & call );

   Parts const & parts_;
   StatusReport const & report_;
   DaemonStatus const daemon_;
   SlowAnswer all_; // the status of all interfaces
};

} // namespace Valend
