// The process's fault sink: logs, counts and passes on what handlers could not do.
#pragma once

#include "platform/quill/Fault.h"

#include <deque>
#include <functional>

namespace Valend {

class FaultLog final : public Quill::FaultSink {
 public:
   // Called for each fault, inside a notification: note it and act later.
   using Observer = std::function< void( Quill::Fault const & fault ) >;

   static constexpr std::size_t keptTexts = 20;

   // Installs itself as the sink.
   explicit FaultLog( Observer observer );
   ~FaultLog() override; // installs the previous sink
   FaultLog( FaultLog const & ) = delete;
   FaultLog & operator=( FaultLog const & ) = delete;

   void fault( Quill::Fault const & fault ) noexcept override;

   U64 count() const noexcept { return count_; }
   // The newest texts, at most `keptTexts`, oldest first.
   std::deque< std::string > const & texts() const noexcept { return texts_; }

 private:
   Observer const observer_;
   Quill::FaultSink * const old_;
   U64 count_ = 0;
   std::deque< std::string > texts_;
};

} // namespace Valend
