// Reports when the library may have ended the delay of an interface: `delayed` of the followed status
// entry changed, or the interface got another entry, or lost it.
//   watches   the directory of status entries, and each followed entry
//   writes    nothing
#pragma once

#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/StatusTypes.h"

#include <functional>
#include <string>

namespace Valend {

class DelayWatch final : public Quill::Reactor {
   QUILL_TRACKED( Valend::DelayWatch )
 public:
   // Called inside a notification: note it, and act later.
   using Changed = std::function< void( std::string const & interface ) >;

   DelayWatch( Quill::Ptr< Valen::Status::StatusDir const > dir, Changed changed );

   char const * reactorName() const noexcept override { return "DelayWatch"; }

   // Follows the entry, instead of the one followed for this interface before.
   void follow( Corvid::IntfId const & intfId,
                Quill::Ptr< Valen::Status::IntfStatus const > entry );
   // Follows no entry of this interface any more.
   void unfollow( Corvid::IntfId const & intfId );

   void handleIntfStatus( Corvid::IntfId intfId );

 private:
   // Watches one status entry.
   class EntrySm final : public Quill::Reactor {
      QUILL_TRACKED( Valend::DelayWatch::EntrySm )
    public:
      EntrySm( DelayWatch const & watch, Corvid::IntfId intfId,
               Quill::Ptr< Valen::Status::IntfStatus const > entry );

      char const * reactorName() const noexcept override { return "EntrySm"; }
      Corvid::IntfId const & intfId() const noexcept { return intfId_; }
      void handleDelayed();

    private:
      DelayWatch const & watch_;
      Corvid::IntfId const intfId_;
      Quill::Watch< EntrySm, Valen::Status::IntfStatus const,
                    Quill::On< Valen::Status::IntfStatus::delayedAttr, &EntrySm::handleDelayed > >
         entry_;
   };

   Changed const changed_;
   Quill::Watch<
      DelayWatch, Valen::Status::StatusDir const,
      Quill::On< Valen::Status::StatusDir::intfStatusAttr, &DelayWatch::handleIntfStatus > >
      dir_;
   Quill::Children< EntrySm, &EntrySm::intfId > entries_;
};

} // namespace Valend
