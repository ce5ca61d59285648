// The delay of one interface, as the state store has it: whether the library would execute it, and the
// flag that requests it.
#pragma once

#include "valend/store/Store.h"

#include <chrono>
#include <optional>
#include <string>

namespace Valend {

class InterfaceDelay {
 public:
   // The store must outlive this.
   InterfaceDelay( Store const & store, Corvid::IntfId intfId )
       : store_( store ), intfId_( std::move( intfId ) ) {}

   Corvid::IntfId const & intfId() const noexcept { return intfId_; }

   // The entry by which the library reports on the interface; null when it has none.
   Quill::Ptr< Valen::Status::IntfStatus > status() const;
   // Whether the library would send frames and hold the link now.
   bool isReady() const;
   // Why the interface cannot become ready without a change of configuration: "delay disabled";
   // empty when it can.
   std::string whyNever() const;
   // The same, or "interface not ready" when it can.
   std::string whyNotReady() const;

   // The interface's `adminShutdownDelayed`. Raising it makes the library send the frames, inside
   // the call, and hold `delayed`: for `delay` if given, else for the configured time. No effect on an
   // interface that is not configured.
   void raiseFlag( std::optional< std::chrono::milliseconds > delay = std::nullopt ) const;
   void lowerFlag() const;

 private:
   Store const & store_;
   Corvid::IntfId const intfId_;
};

} // namespace Valend
