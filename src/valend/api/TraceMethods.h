// The methods that show the library's trace, and set what is traced.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"

namespace Valend {

class TraceMethods final : public MethodGroup {
 public:
   // The most lines of the ring in an answer.
   static constexpr U64 maxLines = 10'000;

   explicit TraceMethods( Parts const & parts ) : trace_( parts.trace ), access_( parts.access ) {}

   std::vector< Method > methods() override;

 private:
   void trace( Call const & call, std::optional< U64 > lines );
   void traceLevels( Call const & call, std::optional< std::string > const & levels );
   Json answer( std::vector< TraceHub::Line > const & lines ) const;

   TraceHub & trace_;
   Access const & access_;
};

} // namespace Valend
