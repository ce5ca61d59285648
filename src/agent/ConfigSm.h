// Valen::ConfigSm: the root of the feature while it runs.
#pragma once

#include "messages/AgentConfigSm.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/quill/Children.h"
#include "tracking/AllIntfConfigDirSm.h"
#include "tracking/AllVrfStatusLocalSm.h"
#include "tracking/L3IntfStatusDirSm.h"
#include "vrf/KernelIntf.h"
#include "vrf/VrfContainerSm.h"

namespace Valen {

// Owns every other reactor, and keeps an interface in the model while there are frames for it.
//   watches   the directory of the agents' configurations; AllVrf::vrf; AllIntf::intfMessage
//   writes    AllIntf::intf, as the only writer
//   owns      the kernel mounts, the three trackers, one AgentConfigSm per agent, one
//             VrfContainerSm per VRF
//   owned by  RunnabilitySm, while there is global configuration
// Between two handlers, from handleInitialized() to handleDestruction():
//   (1) an Intf exists exactly while its interface has an IntfMessage;
//   (2) a VRF whose record and set exist has a container made from both, unless its endpoint could
//       not be opened.
// After its end the status directory is empty.
class ConfigSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::ConfigSm )
 public:
   // Keeps all eleven and passes them on; none null. The whole feature runs when this returns.
   ConfigSm( Quill::Ptr< Config::ConfigDir const > configDir,
             Quill::Ptr< Quill::Dir const > agentConfigDir,
             Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
             Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
             Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
             Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
             Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
             Quill::Ptr< Orrery::EntityManager > entityManager,
             Quill::Ptr< Status::StatusDir > statusDir, Quill::Ptr< AllVrf > allVrf,
             Quill::Ptr< AllIntf > allIntf );
   ~ConfigSm() override;

   // Makes one from the same eleven handles as configSmFactory.
   template < class... Handles > static Quill::Ptr< ConfigSm > ConfigSmIs( Handles &&... handles ) {
      return Quill::make< ConfigSm >( std::forward< Handles >( handles )... );
   }

   char const * reactorName() const noexcept override { return "ConfigSm"; }

   Quill::Ptr< Config::ConfigDir const > const & configDir() const noexcept { return configDir_; }
   Quill::Ptr< Quill::Dir const > agentConfigDir() const noexcept {
      return agentConfigDir_.handle();
   }
   Quill::Ptr< Interface::AllIntfConfigDir const > const & allIntfConfigDir() const noexcept {
      return allIntfConfigDir_;
   }
   Quill::Ptr< Interface::AllIntfStatusDir const > const & allIntfStatusDir() const noexcept {
      return allIntfStatusDir_;
   }
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const &
   allIntfStatusLocalDir() const noexcept {
      return allIntfStatusLocalDir_;
   }
   Quill::Ptr< L3::Intf::StatusDir const > const & l3IntfStatusDir() const noexcept {
      return l3IntfStatusDir_;
   }
   Quill::Ptr< Ip::AllVrfStatusLocal const > const & allVrfStatusLocal() const noexcept {
      return allVrfStatusLocal_;
   }
   Quill::Ptr< Orrery::EntityManager > const & entityManager() const noexcept {
      return entityManager_;
   }
   Quill::Ptr< Status::StatusDir > const & statusDir() const noexcept { return statusDir_; }
   Quill::Ptr< AllVrf > allVrf() const noexcept { return allVrf_.handle(); }
   Quill::Ptr< AllIntf > allIntf() const noexcept { return allIntf_.handle(); }
   Quill::Ptr< Gantry::TaskSchedulerRoot > const & scheduler() const noexcept { return scheduler_; }

   // Each xIs below follows the re-instantiation rule. A child that does not exist is null.

   Quill::Ptr< KernelIntf > const & kernelIntf() const noexcept { return kernelIntf_.get(); }
   Quill::Ptr< KernelIntf >
   kernelIntfIs( Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                 Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                 Quill::Ptr< Orrery::EntityManager > entityManager );
   void kernelIntfDel();

   Quill::Ptr< AllVrfStatusLocalSm > const & allVrfStatusLocalSm() const noexcept {
      return allVrfStatusLocalSm_.get();
   }
   Quill::Ptr< AllVrfStatusLocalSm >
   allVrfStatusLocalSmIs( Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                          Quill::Ptr< AllVrf > allVrf );
   void allVrfStatusLocalSmDel();

   Quill::Ptr< AllIntfConfigDirSm > const & allIntfConfigDirSm() const noexcept {
      return allIntfConfigDirSm_.get();
   }
   Quill::Ptr< AllIntfConfigDirSm >
   allIntfConfigDirSmIs( Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                         Quill::Ptr< AllIntf > allIntf );
   void allIntfConfigDirSmDel();

   Quill::Ptr< L3IntfStatusDirSm > const & l3IntfStatusDirSm() const noexcept {
      return l3IntfStatusDirSm_.get();
   }
   Quill::Ptr< L3IntfStatusDirSm >
   l3IntfStatusDirSmIs( Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                        Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf );
   void l3IntfStatusDirSmDel();

   using AgentConfigSms = Quill::Children< AgentConfigSm, &AgentConfigSm::name >;
   AgentConfigSms const & agentConfigSm() const noexcept { return agentConfigSm_; }
   U32 agentConfigSms() const noexcept { return agentConfigSm_.count(); }
   Quill::Ptr< AgentConfigSm > agentConfigSm( Quill::Name const & agentName ) const noexcept {
      return agentConfigSm_.find( agentName );
   }
   Quill::Ptr< AgentConfigSm > agentConfigSmIs( Quill::Name agentName,
                                                Quill::Ptr< Quill::Dir const > agentDir,
                                                Quill::Ptr< AllIntf > allIntf );
   void agentConfigSmDel( Quill::Name agentName );
   void agentConfigSmDelAll();

   using VrfContainerSms = Quill::Children< VrfContainerSm, &VrfContainerSm::vrfName >;
   VrfContainerSms const & vrfContainerSm() const noexcept { return vrfContainerSm_; }
   U32 vrfContainerSms() const noexcept { return vrfContainerSm_.count(); }
   Quill::Ptr< VrfContainerSm > vrfContainerSm( L3::VrfName const & vrfName ) const noexcept {
      return vrfContainerSm_.find( vrfName );
   }
   // Throws NullParameterException if `vrf`, which has the key, is null; ErrnoException if the
   // VRF's endpoint cannot be opened (VrfContainerSm.h).
   Quill::Ptr< VrfContainerSm >
   vrfContainerSmIs( Quill::Ptr< Vrf const > vrf, Quill::Ptr< VrfL3Intf const > vrfL3Intf,
                     Quill::Ptr< AllIntf > allIntf,
                     Quill::Ptr< Interface::DeviceIntfStatusDir const > deviceIntfStatusDir,
                     Quill::Ptr< Gantry::TaskScheduler > scheduler,
                     Quill::Ptr< Config::ConfigDir const > configDir,
                     Quill::Ptr< Status::StatusDir > statusDir );
   void vrfContainerSmDel( L3::VrfName vrfName );
   void vrfContainerSmDelAll();

   // Also switches the three trackers, but not the mounts, the agents or the containers.
   void hasNotificationActiveIs( bool active ) override;

   void handleInitialized();
   void handleAgent( Quill::Name name );
   void handleVrf( L3::VrfName vrfName );
   void handleIntfMessage( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   void replayModel();

   Quill::Ptr< Config::ConfigDir const > const configDir_;
   Quill::Watch< ConfigSm, Quill::Dir const,
                 Quill::On< Quill::Dir::entryAttr, &ConfigSm::handleAgent > >
      agentConfigDir_;
   Quill::Ptr< Interface::AllIntfConfigDir const > const allIntfConfigDir_;
   Quill::Ptr< Interface::AllIntfStatusDir const > const allIntfStatusDir_;
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const allIntfStatusLocalDir_;
   Quill::Ptr< L3::Intf::StatusDir const > const l3IntfStatusDir_;
   Quill::Ptr< Ip::AllVrfStatusLocal const > const allVrfStatusLocal_;
   Quill::Ptr< Orrery::EntityManager > const entityManager_;
   Quill::Ptr< Status::StatusDir > const statusDir_;
   Quill::Watch< ConfigSm, AllVrf, Quill::On< AllVrf::vrfAttr, &ConfigSm::handleVrf > > allVrf_;
   Quill::Watch< ConfigSm, AllIntf,
                 Quill::On< AllIntf::intfMessageAttr, &ConfigSm::handleIntfMessage > >
      allIntf_;
   Quill::Ptr< Gantry::TaskSchedulerRoot > const scheduler_;
   Quill::Child< KernelIntf > kernelIntf_;
   AgentConfigSms agentConfigSm_;
   Quill::Child< AllVrfStatusLocalSm > allVrfStatusLocalSm_;
   Quill::Child< AllIntfConfigDirSm > allIntfConfigDirSm_;
   Quill::Child< L3IntfStatusDirSm > l3IntfStatusDirSm_;
   VrfContainerSms vrfContainerSm_;
};

Quill::Ptr< ConfigSm > configSmFactory(
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Quill::Dir const > agentConfigDir,
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
   Quill::Ptr< Orrery::EntityManager > entityManager, Quill::Ptr< Status::StatusDir > statusDir,
   Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf );

} // namespace Valen
