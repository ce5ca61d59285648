// The methods that show the library's trace, and set what is traced.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"

namespace Valend {

class TraceMethods final : public MethodGroup {
 public:
   // The most lines of the ring in an answer.
   static constexpr U64 maxLines = 10'000;
   // The pause between two answers with new lines, which all who follow them share.
   static constexpr std::chrono::milliseconds period{ 20 };

   explicit TraceMethods( Parts const & parts );

   std::vector< Method > methods() override;
   void clientGone( U64 client ) override;

 private:
   void trace( Call const & call, std::optional< U64 > lines );
   void traceLevels( Call const & call, std::optional< std::string > const & levels );
   void follow( Call const & call );
   bool traced( std::vector< TraceHub::Line > const & lines );
   void tell();
   Json answer( std::vector< TraceHub::Line > const & lines ) const;

   TraceHub & trace_;
   Access const & access_;
   std::vector< Call > followers_;
   std::vector< TraceHub::Line > pending_; // that the followers do not have yet
   bool following_ = false;                // traced() is called with new lines
   Gantry::Timer rest_;
};

} // namespace Valend
