// The methods by which agents publish their frames, and that list all frames.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/api/SlowAnswer.h"
#include "valend/api/WatchMethods.h"
#include "valend/report/StatusReport.h"

namespace Valend {

class FrameMethods final : public MethodGroup {
 public:
   // All must outlive this.
   FrameMethods( Parts const & parts, StatusReport const & report, WatchMethods & watches )
       : parts_( parts ), report_( report ), watches_( watches ),
         all_( parts.work, parts.scheduler, "messages", [ this ] { return allMessages(); } ) {}

   std::vector< Method > methods() override;
   void clientGone( U64 client ) override { parts_.publications.clientGone( client ); }

 private:
   // What a client may publish with, of Publications::Lifetime.
   enum class Lifetime : U8 { kept, connection };
   friend constexpr auto enumTexts( Lifetime ) {
      return std::to_array< EnumText< Lifetime > >(
         { { Lifetime::kept, "kept" }, { Lifetime::connection, "connection" } } );
   }

   void publish( Call const & call, std::string const & agent, std::string const & interface,
                 std::vector< std::string > const & frames, Lifetime asked );
   void withdraw( Call const & call, std::string const & agent, std::string const & interface );
   void listMessages( Call const & call, std::optional< std::string > const & interface );
   SlowAnswer::Part allMessages() const;
   Json tooLong( std::string const & agent, std::string const & interface ) const;
   void answerWhenSaved( Call const & call, Publications::Lifetime lifetime,
                         Json const & parameters );
   void changed( Varlink::Call & call, std::string const & interface );

   Parts const & parts_;
   StatusReport const & report_;
   WatchMethods & watches_;
   SlowAnswer all_; // the frames for all interfaces
};

} // namespace Valend
