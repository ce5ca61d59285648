// The method that shows the state store; WatchMethods follows it.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"

namespace Valend {

class StoreMethods final : public MethodGroup {
 public:
   explicit StoreMethods( Parts const & parts ) : store_( parts.store ) {}

   std::vector< Method > methods() override;

 private:
   void show( Call const & call, std::string const & path );

   Store & store_;
};

} // namespace Valend
