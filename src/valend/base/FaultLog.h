// The process's fault sink: logs and counts what a reactor's handler could not do, and says which
// VRF it was about, so that it can be tried again.
#pragma once

#include "platform/quill/Fault.h"

#include <deque>
#include <functional>

namespace Valend {

class FaultLog final : public Quill::FaultSink {
 public:
   // `vrfFailed` hears of VRFs that could not be set up; it is called inside a notification.
   using VrfFailed = std::function< void( std::string const & vrf, std::string const & why ) >;

   static constexpr std::size_t keptTexts = 20;

   // Installs itself; takes itself back at its end.
   explicit FaultLog( VrfFailed vrfFailed );
   ~FaultLog() override;
   FaultLog( FaultLog const & ) = delete;
   FaultLog & operator=( FaultLog const & ) = delete;

   void fault( Quill::Fault const & fault ) noexcept override;

   U64 count() const noexcept { return count_; }
   // The newest texts, oldest first.
   std::deque< std::string > const & texts() const noexcept { return texts_; }

 private:
   VrfFailed const vrfFailed_;
   Quill::FaultSink * const old_;
   U64 count_ = 0;
   std::deque< std::string > texts_;
};

} // namespace Valend
