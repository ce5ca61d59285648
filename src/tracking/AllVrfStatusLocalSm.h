// Valen::AllVrfStatusLocalSm and VrfStatusLocalSm: which VRFs are up, and in which namespace.
#pragma once

#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

// Keeps the record of one VRF while its local status is active.
//   watches   the VRF's Ip::VrfStatusLocal
//   writes    AllVrf::vrf of this name
//   owned by  AllVrfStatusLocalSm
// The namespace is read when the state changes. It is not watched, because a VRF whose namespace
// changes is removed from the status directory and added again.
class VrfStatusLocalSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::VrfStatusLocalSm )
 public:
   // Keeps all; none null. Throws NameInUseException if a record of that name has another namespace
   // or set.
   VrfStatusLocalSm( L3::VrfName vrfName, Quill::Ptr< Ip::VrfStatusLocal const > vrfStatusLocal,
                     Quill::Ptr< VrfL3Intf > vrfL3Intf, Quill::Ptr< AllVrf > allVrf );
   ~VrfStatusLocalSm() override;

   char const * reactorName() const noexcept override { return "VrfStatusLocalSm"; }

   L3::VrfName const & vrfName() const noexcept { return vrfName_; }
   Quill::Ptr< Ip::VrfStatusLocal const > vrfStatusLocal() const noexcept {
      return vrfStatusLocal_.handle();
   }
   Quill::Ptr< VrfL3Intf > const & vrfL3Intf() const noexcept { return vrfL3Intf_; }
   Quill::Ptr< AllVrf > const & allVrf() const noexcept { return allVrf_; }

   static constexpr auto quillParameters() {
      return std::tuple( Quill::Parameter( "_vrfStatusLocal", &VrfStatusLocalSm::vrfStatusLocal ),
                         Quill::Parameter( "_vrfL3Intf", &VrfStatusLocalSm::vrfL3Intf ),
                         Quill::Parameter( "_allVrf", &VrfStatusLocalSm::allVrf ) );
   }

   void handleState();
   void handleDestruction();

 private:
   L3::VrfName const vrfName_;
   Quill::Watch< VrfStatusLocalSm, Ip::VrfStatusLocal const,
                 Quill::On< Ip::VrfStatusLocal::stateAttr, &VrfStatusLocalSm::handleState > >
      vrfStatusLocal_;
   Quill::Ptr< VrfL3Intf > const vrfL3Intf_;
   Quill::Ptr< AllVrf > const allVrf_;
};

// Keeps one VrfStatusLocalSm for each VRF that has a local status and layer-3 interfaces, and the
// record of the default VRF, which needs no status, while it has interfaces.
//   watches   the local VRF status; AllVrf::vrfL3Intf
//   writes    AllVrf::vrf of the default VRF
//   owns      the VrfStatusLocalSms
//   owned by  ConfigSm
// When the last interface leaves a VRF, its child and record stay, with the set they were made
// from, until the status is removed or there is another set.
class AllVrfStatusLocalSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::AllVrfStatusLocalSm )
 public:
   // Keeps both; neither null.
   AllVrfStatusLocalSm( Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                        Quill::Ptr< AllVrf > allVrf );
   ~AllVrfStatusLocalSm() override;

   char const * reactorName() const noexcept override { return "AllVrfStatusLocalSm"; }

   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal() const noexcept {
      return allVrfStatusLocal_.handle();
   }
   Quill::Ptr< AllVrf > allVrf() const noexcept { return allVrf_.handle(); }

   static constexpr auto quillParameters() {
      return std::tuple(
         Quill::Parameter( "_allVrfStatusLocal", &AllVrfStatusLocalSm::allVrfStatusLocal ),
         Quill::Parameter( "_allVrf", &AllVrfStatusLocalSm::allVrf ) );
   }

   using VrfStatusLocalSms = Quill::Children< VrfStatusLocalSm, &VrfStatusLocalSm::vrfName >;
   VrfStatusLocalSms const & vrfStatusLocalSm() const noexcept { return vrfStatusLocalSm_; }
   U32 vrfStatusLocalSms() const noexcept { return vrfStatusLocalSm_.count(); }
   // The child of that VRF; null if it does not exist.
   Quill::Ptr< VrfStatusLocalSm > vrfStatusLocalSm( L3::VrfName const & vrfName ) const noexcept {
      return vrfStatusLocalSm_.find( vrfName );
   }
   // Follows the re-instantiation rule.
   Quill::Ptr< VrfStatusLocalSm >
   vrfStatusLocalSmIs( L3::VrfName vrfName, Quill::Ptr< Ip::VrfStatusLocal const > vrfStatusLocal,
                       Quill::Ptr< VrfL3Intf > vrfL3Intf, Quill::Ptr< AllVrf > allVrf );
   void vrfStatusLocalSmDel( L3::VrfName vrfName );
   void vrfStatusLocalSmDelAll();

   void handleInitialized();
   void handleVrf( L3::VrfName vrfName );
   void handleVrfL3Intf( L3::VrfName vrfName );
   void handleDefaultVrf();
   void handleDestruction();

 private:
   Quill::Watch< AllVrfStatusLocalSm, Ip::AllVrfStatusLocal const,
                 Quill::On< Ip::AllVrfStatusLocal::vrfAttr, &AllVrfStatusLocalSm::handleVrf > >
      allVrfStatusLocal_;
   Quill::Watch< AllVrfStatusLocalSm, AllVrf,
                 Quill::On< AllVrf::vrfL3IntfAttr, &AllVrfStatusLocalSm::handleVrfL3Intf > >
      allVrf_;
   VrfStatusLocalSms vrfStatusLocalSm_;
};

Quill::Ptr< AllVrfStatusLocalSm >
allVrfStatusLocalSmFactory( Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                            Quill::Ptr< AllVrf > allVrf );

} // namespace Valen
