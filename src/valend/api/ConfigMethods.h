// The methods about what valend reads: its configuration, and the namespaces of the machine.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/api/SlowAnswer.h"

namespace Valend {

class ConfigMethods final : public MethodGroup {
 public:
   // `parts` must outlive this.
   explicit ConfigMethods( Parts const & parts )
       : parts_( parts ), all_( parts.work, parts.scheduler, "configuration",
                                [ this ] { return configuration(); } ) {}

   std::vector< Method > methods() override;

 private:
   void config( Call const & call );
   SlowAnswer::Part configuration() const;
   void reload( Call const & call );
   void rescan( Call const & call );

   Parts const & parts_;
   SlowAnswer all_; // the active configuration
};

} // namespace Valend
