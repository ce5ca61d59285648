// Valen::VrfContainerSm: one VRF, with its endpoint and its interfaces.
#pragma once

#include "intf/IntfSm.h"
#include "platform/quill/Children.h"

namespace Valen {

// Keeps one IntfSm per interface of the VRF, and assigns kernel devices to the interfaces.
//   watches   the VRF's set of interfaces; the device directory of its namespace
//   writes    Intf::device of each interface in the VRF
//   owns      the raw transmit endpoint, in the VRF's namespace; the IntfSms
//   owned by  ConfigSm, one per Vrf
// If the namespace of the endpoint cannot be opened, the container stays uninitialized: it ignores
// devices, and only interfaces that join later get a reactor.
class VrfContainerSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::VrfContainerSm )
 public:
   using Ptr = Quill::Ptr< VrfContainerSm >;

   // Keeps all; none null. Throws Quill::ErrnoException, with errno as the failed call left it, if
   // the endpoint cannot be opened for a reason other than a missing or wrong namespace (ENOENT,
   // EINVAL).
   VrfContainerSm( Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
                   Quill::Ptr< AllIntf > allIntf,
                   Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
                   Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                   Quill::Ptr< Config::ConfigDir const > configDir,
                   Quill::Ptr< Status::StatusDir > statusDir );
   ~VrfContainerSm() override;

   char const * reactorName() const noexcept override { return "VrfContainerSm"; }

   // The key in the owner's collection.
   L3::VrfName const & vrfName() const noexcept { return vrf_->vrfName(); }

   Quill::Ptr< Vrf const > const & vrf() const noexcept { return vrf_; }
   Quill::Ptr< VrfL3Intf const > vrfL3Intf() const noexcept { return vrfL3Intf_.handle(); }
   // Watches another set from now on, or none. Runs no handler.
   void vrfL3IntfIs( Quill::Ptr< VrfL3Intf const > vrfL3Intf ) noexcept {
      vrfL3Intf_.notifierIs( std::move( vrfL3Intf ) );
   }
   void vrfL3IntfDel() noexcept { vrfL3IntfIs( nullptr ); }
   Quill::Ptr< AllIntf > const & allIntf() const noexcept { return allIntf_; }
   Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir() const noexcept {
      return deviceIntfStatusDir_.handle();
   }
   // Watches another directory from now on, or none. Runs no handler.
   void deviceIntfStatusDirIs(
      Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir ) noexcept {
      deviceIntfStatusDir_.notifierIs( std::move( deviceIntfStatusDir ) );
   }
   void deviceIntfStatusDirDel() noexcept { deviceIntfStatusDirIs( nullptr ); }
   Quill::Ptr< Gantry::TaskScheduler > const & taskScheduler() const noexcept {
      return taskScheduler_;
   }
   Quill::Ptr< Config::ConfigDir const > const & configDir() const noexcept { return configDir_; }
   Quill::Ptr< Status::StatusDir > const & statusDir() const noexcept { return statusDir_; }
   Quill::Ptr< Corvid::RawTxPam > const & rawTxPam() const noexcept { return rawTxPam_; }
   void rawTxPamIs( Quill::Ptr< Corvid::RawTxPam > rawTxPam ) noexcept {
      rawTxPam_ = std::move( rawTxPam );
   }

   static constexpr auto quillParameters() {
      return std::tuple(
         Quill::Parameter( "_vrf", &VrfContainerSm::vrf ),
         Quill::Parameter( "_vrfL3Intf", &VrfContainerSm::vrfL3Intf ),
         Quill::Parameter( "_allIntf", &VrfContainerSm::allIntf ),
         Quill::Parameter( "_deviceIntfStatusDir", &VrfContainerSm::deviceIntfStatusDir ),
         Quill::Parameter( "_taskScheduler", &VrfContainerSm::taskScheduler ),
         Quill::Parameter( "_configDir", &VrfContainerSm::configDir ),
         Quill::Parameter( "_statusDir", &VrfContainerSm::statusDir ) );
   }

   using IntfSms = Quill::Children< IntfSm, &IntfSm::intfId >;
   IntfSms const & intfSm() const noexcept { return intfSm_; }
   U32 intfSms() const noexcept { return intfSm_.count(); }
   // The child of that interface; null if it does not exist.
   Quill::Ptr< IntfSm > intfSm( Corvid::IntfId const & intfId ) const noexcept {
      return intfSm_.find( intfId );
   }
   // Returns the child of that interface, even if it was made from other values, or makes it.
   Quill::Ptr< IntfSm > intfSmIs( Corvid::IntfId intfId, Quill::Ptr< Intf > intf,
                                  Quill::Ptr< Corvid::RawTxPam > rawTxPam,
                                  Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                                  Quill::Ptr< Config::ConfigDir const > configDir,
                                  Quill::Ptr< Status::StatusDir > statusDir );
   // Removes the child, silences it and returns it; null if it does not exist.
   Quill::Ptr< IntfSm > intfSmDel( Corvid::IntfId intfId );
   void intfSmDelAll();

   void handleInitialized();
   void handleIntf( Quill::Ptr< Valen::Intf > intf );
   void handleDevice( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   // The interface's entry in the directory; the default device if it has no entry.
   Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName
   deviceEntry( Corvid::IntfId const & intfId ) const;

   Quill::Ptr< Vrf const > const vrf_;
   Quill::Watch< VrfContainerSm, VrfL3Intf const,
                 Quill::On< VrfL3Intf::intfAttr, &VrfContainerSm::handleIntf > >
      vrfL3Intf_;
   Quill::Ptr< AllIntf > const allIntf_;
   Quill::Watch< VrfContainerSm, Interface::DeviceIntfStatusDir const,
                 Quill::On< Interface::DeviceIntfStatusDir::intfStatusAndDeviceNameAttr,
                            &VrfContainerSm::handleDevice > >
      deviceIntfStatusDir_;
   Quill::Ptr< Gantry::TaskScheduler > const taskScheduler_;
   Quill::Ptr< Config::ConfigDir const > const configDir_;
   Quill::Ptr< Status::StatusDir > const statusDir_;
   Quill::Ptr< Corvid::RawTxPam > rawTxPam_;
   IntfSms intfSm_;
};

Quill::Ptr< VrfContainerSm >
vrfContainerSmFactory( Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
                       Quill::Ptr< AllIntf > allIntf,
                       Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
                       Quill::Ptr< Gantry::TaskScheduler > taskScheduler,
                       Quill::Ptr< Config::ConfigDir const > configDir,
                       Quill::Ptr< Status::StatusDir > statusDir );

} // namespace Valen
