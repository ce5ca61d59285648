// Valen::AllIntfConfigDirSm: which interfaces support the delay.
#pragma once

#include "platform/quill/Reinstantiation.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

// Links each interface of the model to its configuration if that supports the delay. The delay does
// not apply to an interface without the link.
//   watches   the interface configuration directory; AllIntf::intf
//   writes    Intf::intfConfig, nothing else
//   owned by  ConfigSm
// The "supported" flag is read when a configuration or an interface is added or removed. It is not
// watched, because it does not change while its entity is published.
class AllIntfConfigDirSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::AllIntfConfigDirSm )
 public:
   // Keeps both; neither null.
   AllIntfConfigDirSm( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                       Quill::Ptr< AllIntf > allIntf );
   ~AllIntfConfigDirSm() override;

   char const * reactorName() const noexcept override { return "AllIntfConfigDirSm"; }

   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir() const noexcept {
      return allIntfConfigDir_.handle();
   }
   Quill::Ptr< AllIntf > allIntf() const noexcept { return allIntf_.handle(); }

   // Watch another entity from now on, or none. Run no handler.
   void
   allIntfConfigDirIs( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir ) noexcept {
      allIntfConfigDir_.notifierIs( std::move( allIntfConfigDir ) );
   }
   void allIntfConfigDirDel() noexcept { allIntfConfigDirIs( nullptr ); }
   void allIntfIs( Quill::Ptr< AllIntf > allIntf ) noexcept {
      allIntf_.notifierIs( std::move( allIntf ) );
   }
   void allIntfDel() noexcept { allIntfIs( nullptr ); }

   static constexpr auto quillParameters() {
      return std::tuple(
         Quill::Parameter( "_allIntfConfigDir", &AllIntfConfigDirSm::allIntfConfigDir ),
         Quill::Parameter( "_allIntf", &AllIntfConfigDirSm::allIntf ) );
   }

   void handleInitialized();
   void handleIntfConfig( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   Quill::Ptr< Intf > intf( Corvid::IntfId const & intfId ) const;

   Quill::Watch< AllIntfConfigDirSm, Interface::AllIntfConfigDir const,
                 Quill::On< Interface::AllIntfConfigDir::intfConfigAttr,
                            &AllIntfConfigDirSm::handleIntfConfig > >
      allIntfConfigDir_;
   Quill::Watch< AllIntfConfigDirSm, AllIntf,
                 Quill::On< AllIntf::intfAttr, &AllIntfConfigDirSm::handleIntfConfig > >
      allIntf_;
};

Quill::Ptr< AllIntfConfigDirSm >
allIntfConfigDirSmFactory( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                           Quill::Ptr< AllIntf > allIntf );

} // namespace Valen
