// What the service is, for clients that do not know it: the methods of org.varlink.service.
#pragma once

#include "valend/api/Method.h"

namespace Valend {

class ServiceMethods final : public MethodGroup {
 public:
   std::vector< Method > methods() override;

 private:
   void getInfo( Call const & call );
   void getInterfaceDescription( Call const & call, std::string const & interface );
};

} // namespace Valend
