// The methods that follow the status of interfaces: WatchStatus answers after each change, Wait once a
// condition is met. All of them share one StatusModel, and the answers.
//
// A client that takes its answers slowly gets fewer of them, each with the newest state: at most one
// waits for it at a time.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/base/Slices.h"
#include "valend/report/StatusModel.h"

#include <list>

namespace Valend {

class WatchMethods final : public MethodGroup {
 public:
   // When a client is looked at again that has not taken its last answer.
   static constexpr std::chrono::milliseconds slowPeriod{ 50 };
   // The pause before the next answers is this many times as long as it took to make and send them.
   static constexpr int restFactor = 5;
   // The longest that Wait waits.
   static constexpr std::chrono::milliseconds maxTimeout = std::chrono::hours( 24 );

   enum class Until : U8 { ready, up, down, idle };
   friend constexpr auto enumTexts( Until ) {
      return std::to_array< EnumText< Until > >( { { Until::ready, "ready" },
                                                   { Until::up, "up" },
                                                   { Until::down, "down" },
                                                   { Until::idle, "idle" } } );
   }

   // Both must outlive this.
   WatchMethods( Parts const & parts, StatusReport const & report );

   std::vector< Method > methods() override;
   void clientGone( U64 client ) override;

   // Something of the interface has changed of which the store does not notify.
   void changed( std::string const & interface ) { model_.changed( interface ); }

 private:
   struct Watch {
      Call call;
      std::optional< std::string > interface; // only this one
      U64 seen = 0;                           // the last change that was answered
      bool answered = false;
   };
   struct Wait {
      Wait( Call const & waiting, std::string name, Until condition )
          : call( waiting ), interface( std::move( name ) ), until( condition ) {}
      Call call;
      std::string interface;
      Until until;
      std::optional< Gantry::Timer > timeout = std::nullopt;
      U64 seen = 0; // the last change that was looked at
   };

   void watchStatus( Call const & call, std::optional< std::string > const & interface );
   void wait( Call const & call, std::string const & interface, Until until,
              std::optional< U64 > timeoutMs );

   void news();
   void answerWatches();
   bool wants( Watch const & watch ) const;
   Varlink::Encoded const & answerTo( Watch const & watch );
   void answerWaits();
   bool answerIfMet( Wait const & wait, Json const * now );
   void timedOut( Wait const & wait );
   void ended();

   Parts const & parts_;
   StatusReport const & report_;
   StatusModel model_;
   std::list< Watch > watches_;
   std::list< Wait > waits_;
   // The answers with the changes up to `answersUpTo_`, by the interface (empty: all) and what was seen.
   std::map< std::pair< std::string, U64 >, Varlink::Encoded > answers_;
   U64 answersUpTo_ = 0;
   Slices slices_;
   Gantry::Timer slow_;
   Gantry::Timer rest_;
   Gantry::Time restEnd_{};
   Gantry::Time spent_{}; // on the current answers so far
};

} // namespace Valend
