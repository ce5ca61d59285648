// Those who read one path of the state store: they share one look at it, and the answers.
//
// A client that takes its answers slowly gets fewer of them, each with the newest value: at most one waits
// for it at a time.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"
#include "valend/base/Slices.h"
#include "valend/store/StoreView.h"

namespace Valend {

class PathReaders {
 public:
   // When a client is looked at again that has not taken its last answer.
   static constexpr std::chrono::milliseconds slowPeriod{ 50 };
   // The pause before the next answers is this many times as long as it took to make them,
   static constexpr int restFactor = 10;
   // and so long that all readers together are sent no more than this.
   static constexpr std::size_t bytesPerMs = 64u << 10;

   // Both must outlive this.
   PathReaders( Parts const & parts, StoreTexts & texts, std::string path );

   // Answers once, at once if that takes little time.
   void show( Call const & call );
   // Answers now and after each change, until the client is gone.
   void watch( Call const & call );
   void clientGone( U64 client );

   bool empty() const noexcept { return watches_.empty() && shows_.empty(); }

 private:
   struct Watch {
      Call call;
      StoreView::Text last = nullptr; // the value that it has
      bool answered = false;
   };

   void lookLater();
   void look();
   void readNow();
   void fail( Refusal const & refusal );
   void answerShows();
   void answerWatches();
   bool wants( Watch const & watch ) const;
   bool hasNewReader() const;

   Parts const & parts_;
   std::string const path_;
   StoreView view_;
   std::vector< Call > shows_;
   std::vector< Watch > watches_;
   StoreView::Text value_;  // as it was read last
   Varlink::Encoded shown_; // the answers with that value
   Varlink::Encoded watched_;
   Slices slices_;
   Gantry::Timer rest_;
   Gantry::Timer slow_;
   Gantry::Time restEnd_{}; // until then, only new readers are answered
   bool onlyNew_ = false;
   bool pending_ = false; // a look is posted
};

} // namespace Valend
