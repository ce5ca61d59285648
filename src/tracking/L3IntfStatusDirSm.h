// Valen::L3IntfStatusDirSm and L3IntfStatusSm: which VRF each layer-3 interface is in.
#pragma once

#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

// Keeps one interface in the set of the VRF that its layer-3 status names.
//   watches   the interface's L3::Intf::Status
//   writes    Intf::l3IntfStatus of this interface; its membership in the sets of
//             AllVrf::vrfL3Intf, which it makes when needed and deletes when they become empty
//   owned by  L3IntfStatusDirSm
// Between two handlers, from handleInitialized() to handleDestruction():
//   (1) the interface is linked to its status;
//   (2) it is in one set, that of the status's VRF. An empty name is a VRF like any other.
class L3IntfStatusSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::L3IntfStatusSm )
 public:
   // Keeps all; none null.
   L3IntfStatusSm( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                   Quill::Ptr< L3::Intf::Status const > l3IntfStatus, Quill::Ptr< AllVrf > allVrf );
   ~L3IntfStatusSm() override;

   char const * reactorName() const noexcept override { return "L3IntfStatusSm"; }

   Corvid::IntfId const & intfId() const noexcept { return intfId_; }
   Quill::Ptr< Intf > const & intf() const noexcept { return intf_; }
   Quill::Ptr< L3::Intf::Status const > l3IntfStatus() const noexcept {
      return l3IntfStatus_.handle();
   }
   Quill::Ptr< AllVrf > const & allVrf() const noexcept { return allVrf_; }
   // The set that has the interface; null before initialization.
   Quill::Ptr< VrfL3Intf > const & vrfL3Intf() const noexcept { return vrfL3Intf_; }
   void vrfL3IntfIs( Quill::Ptr< VrfL3Intf > vrfL3Intf ) noexcept {
      vrfL3Intf_ = std::move( vrfL3Intf );
   }

   static constexpr auto quillParameters() {
      return std::tuple( Quill::Parameter( "_intf", &L3IntfStatusSm::intf ),
                         Quill::Parameter( "_l3IntfStatus", &L3IntfStatusSm::l3IntfStatus ),
                         Quill::Parameter( "_allVrf", &L3IntfStatusSm::allVrf ) );
   }

   void handleInitialized();
   // Leaves the set and joins that of the status's VRF, even if it is the same one.
   void handleVrf();
   void handleDestruction();

 private:
   // Removes the interface from its set, if it is in one. Returns the set if it is empty now.
   Quill::Ptr< VrfL3Intf > leaveVrfL3Intf();
   // Deletes an empty set from the model.
   void vrfL3IntfRemove( Quill::Ptr< VrfL3Intf > const & emptied );

   Corvid::IntfId const intfId_;
   Quill::Ptr< Intf > const intf_;
   Quill::Watch< L3IntfStatusSm, L3::Intf::Status const,
                 Quill::On< L3::Intf::Status::vrfAttr, &L3IntfStatusSm::handleVrf > >
      l3IntfStatus_;
   Quill::Ptr< AllVrf > const allVrf_;
   Quill::Ptr< VrfL3Intf > vrfL3Intf_;
};

// Keeps one L3IntfStatusSm for each interface that has a layer-3 status and is in the model.
//   watches   the layer-3 status directory; AllIntf::intf
//   writes    nothing itself
//   owns      the L3IntfStatusSms
//   owned by  ConfigSm
// When an interface leaves the model while its status stays, its child stays too, with the old
// record, until the status is removed or replaced.
class L3IntfStatusDirSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::L3IntfStatusDirSm )
 public:
   // Keeps all three; none null.
   L3IntfStatusDirSm( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                      Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf );
   ~L3IntfStatusDirSm() override;

   char const * reactorName() const noexcept override { return "L3IntfStatusDirSm"; }

   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir() const noexcept {
      return l3IntfStatusDir_.handle();
   }
   Quill::Ptr< AllVrf > const & allVrf() const noexcept { return allVrf_; }
   Quill::Ptr< AllIntf > allIntf() const noexcept { return allIntf_.handle(); }

   static constexpr auto quillParameters() {
      return std::tuple(
         Quill::Parameter( "_l3IntfStatusDir", &L3IntfStatusDirSm::l3IntfStatusDir ),
         Quill::Parameter( "_allVrf", &L3IntfStatusDirSm::allVrf ),
         Quill::Parameter( "_allIntf", &L3IntfStatusDirSm::allIntf ) );
   }

   using L3IntfStatusSms = Quill::Children< L3IntfStatusSm, &L3IntfStatusSm::intfId >;
   L3IntfStatusSms const & l3IntfStatusSm() const noexcept { return l3IntfStatusSm_; }
   U32 l3IntfStatusSms() const noexcept { return l3IntfStatusSm_.count(); }
   // The child of that interface; null if it does not exist.
   Quill::Ptr< L3IntfStatusSm > l3IntfStatusSm( Corvid::IntfId const & intfId ) const noexcept {
      return l3IntfStatusSm_.find( intfId );
   }
   // Follows the re-instantiation rule.
   Quill::Ptr< L3IntfStatusSm > l3IntfStatusSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                                  Quill::Ptr< L3::Intf::Status const > l3IntfStatus,
                                                  Quill::Ptr< AllVrf > allVrf );
   void l3IntfStatusSmDel( Corvid::IntfId intfId );
   void l3IntfStatusSmDelAll();

   void handleInitialized();
   void handleIntf( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   Quill::Watch< L3IntfStatusDirSm, L3::Intf::StatusDir const,
                 Quill::On< L3::Intf::StatusDir::intfStatusAttr, &L3IntfStatusDirSm::handleIntf > >
      l3IntfStatusDir_;
   Quill::Ptr< AllVrf > const allVrf_;
   Quill::Watch< L3IntfStatusDirSm, AllIntf,
                 Quill::On< AllIntf::intfAttr, &L3IntfStatusDirSm::handleIntf > >
      allIntf_;
   L3IntfStatusSms l3IntfStatusSm_;
};

Quill::Ptr< L3IntfStatusDirSm >
l3IntfStatusDirSmFactory( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                          Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf );

} // namespace Valen
