// Valen::RunnabilitySm: the way into the library, and its outermost reactor. The agent makes one,
// with runnabilitySmFactory, and keeps the handle as long as the feature may run.
#pragma once

#include "platform/orrery/EntityManager.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

class ConfigSm;

// Decides whether the feature runs: while global configuration exists there is a ConfigSm.
//   watches   ConfigDir::globalConfig
//   writes    StatusDir::agentActive; deletes the status entries of an earlier run at the start
//   owned by  the agent
// The flag, not the presence of the ConfigSm, guards against making a second one: a status
// directory that says "active" before the start keeps the feature from starting until global
// configuration was absent once.
class RunnabilitySm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::RunnabilitySm )
 public:
   // Keeps all eleven and hands them on. None null.
   RunnabilitySm( Quill::Ptr< Config::ConfigDir const > configDir,
                  Quill::Ptr< Quill::Dir const > agentConfigDir,
                  Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
                  Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
                  Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
                  Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
                  Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
                  Quill::Ptr< Orrery::EntityManager > entityManager,
                  Quill::Ptr< Status::StatusDir > statusDir, Quill::Ptr< AllVrf > allVrf,
                  Quill::Ptr< AllIntf > allIntf );
   // Tears the feature down. `agentActive` keeps its last value.
   ~RunnabilitySm() override;

   // Makes one from the same eleven handles as runnabilitySmFactory.
   template < class... Handles >
   static Quill::Ptr< RunnabilitySm > RunnabilitySmIs( Handles &&... handles ) {
      return Quill::make< RunnabilitySm >( std::forward< Handles >( handles )... );
   }

   char const * reactorName() const noexcept override { return "RunnabilitySm"; }

   Quill::Ptr< Config::ConfigDir const > configDir() const { return configDir_.handle(); }
   Quill::Ptr< Quill::Dir const > const & agentConfigDir() const { return agentConfigDir_; }
   Quill::Ptr< Interface::AllIntfConfigDir const > const & allIntfConfigDir() const {
      return allIntfConfigDir_;
   }
   Quill::Ptr< Interface::AllIntfStatusDir const > const & allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const & allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   Quill::Ptr< L3::Intf::StatusDir const > const & l3IntfStatusDir() const {
      return l3IntfStatusDir_;
   }
   Quill::Ptr< Ip::AllVrfStatusLocal const > const & allVrfStatusLocal() const {
      return allVrfStatusLocal_;
   }
   Quill::Ptr< Orrery::EntityManager > const & entityManager() const { return entityManager_; }
   Quill::Ptr< Status::StatusDir > const & statusDir() const { return statusDir_; }
   Quill::Ptr< AllVrf > const & allVrf() const { return allVrf_; }
   Quill::Ptr< AllIntf > const & allIntf() const { return allIntf_; }

   // Watches another directory from now on, or none. Runs no handler; a ConfigSm that exists keeps
   // the directory it was made with.
   void configDirIs( Quill::Ptr< Config::ConfigDir const > configDir );
   void configDirDel();

   // The main reactor; null while the feature is off.
   Quill::Ptr< ConfigSm > const & configSm() const { return configSm_; }
   void configSmIs( Quill::Ptr< ConfigSm > configSm );
   bool initialized() const { return initialized_; }
   void initializedIs( bool initialized ) { initialized_ = initialized; }

   void handleInitialized();
   void handleGlobalConfig();

 private:
   Quill::Watch<
      RunnabilitySm, Config::ConfigDir const,
      Quill::On< Config::ConfigDir::globalConfigAttr, &RunnabilitySm::handleGlobalConfig > >
      configDir_;
   Quill::Ptr< Quill::Dir const > const agentConfigDir_;
   Quill::Ptr< Interface::AllIntfConfigDir const > const allIntfConfigDir_;
   Quill::Ptr< Interface::AllIntfStatusDir const > const allIntfStatusDir_;
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > const allIntfStatusLocalDir_;
   Quill::Ptr< L3::Intf::StatusDir const > const l3IntfStatusDir_;
   Quill::Ptr< Ip::AllVrfStatusLocal const > const allVrfStatusLocal_;
   Quill::Ptr< Orrery::EntityManager > const entityManager_;
   Quill::Ptr< Status::StatusDir > const statusDir_;
   Quill::Ptr< AllVrf > const allVrf_;
   Quill::Ptr< AllIntf > const allIntf_;
   Quill::Ptr< ConfigSm > configSm_;
   bool initialized_ = false;
};

// Whether the fault says that the library could not set up a VRF, whose name is the fault's key: its
// packet endpoint could not be opened, for example. The host takes the VRF's status entry out and puts
// it in again after a pause.
bool isVrfSetupFault( Quill::Fault const & fault ) noexcept;

// Makes the reactor, and with it the whole library. The configuration and status entities are the
// agent's; `allVrf` and `allIntf` come from allVrfFactory and allIntfFactory. No argument may be
// null. The process's endpoint provider (Corvid::rawTxPamProviderIs) must be installed. At the
// return everything that was configured is at work.
Quill::Ptr< RunnabilitySm > runnabilitySmFactory(
   Quill::Ptr< Config::ConfigDir const > configDir, Quill::Ptr< Quill::Dir const > agentConfigDir,
   Quill::Ptr< Interface::AllIntfConfigDir const > allIntfConfigDir,
   Quill::Ptr< Interface::AllIntfStatusDir const > allIntfStatusDir,
   Quill::Ptr< Interface::AllIntfStatusLocalDir const > allIntfStatusLocalDir,
   Quill::Ptr< L3::Intf::StatusDir const > l3IntfStatusDir,
   Quill::Ptr< Ip::AllVrfStatusLocal const > allVrfStatusLocal,
   Quill::Ptr< Orrery::EntityManager > entityManager, Quill::Ptr< Status::StatusDir > statusDir,
   Quill::Ptr< AllVrf > allVrf, Quill::Ptr< AllIntf > allIntf );

} // namespace Valen
