// Valen::RunnabilitySm: the entry point of the library, and its outermost reactor. The process
// makes one, with runnabilitySmFactory, and keeps the handle as long as the feature may run.
#pragma once

#include "platform/orrery/EntityManager.h"
#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

class ConfigSm;

// Decides whether the feature runs: while global configuration exists there is a ConfigSm.
//   watches   ConfigDir::globalConfig
//   writes    StatusDir::agentActive; deletes the status entries of an earlier run at the start
//   owns      the ConfigSm
//   owned by  the process
// A ConfigSm is made only if the flag is not set: a status directory that says "active" before the
// start keeps the feature from starting until global configuration was absent once.
class RunnabilitySm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::RunnabilitySm )
 public:
   // Keeps all eleven and passes them on; none null.
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

   Quill::Ptr< Config::ConfigDir const > configDir() const noexcept { return configDir_.handle(); }
   Quill::Ptr< Quill::Dir const > const & agentConfigDir() const noexcept {
      return agentConfigDir_;
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
   Quill::Ptr< AllVrf > const & allVrf() const noexcept { return allVrf_; }
   Quill::Ptr< AllIntf > const & allIntf() const noexcept { return allIntf_; }

   // Watches another directory from now on, or none. Runs no handler. A ConfigSm that exists keeps
   // the directory it was made from.
   void configDirIs( Quill::Ptr< Config::ConfigDir const > configDir );
   void configDirDel();

   // The main reactor; null while the feature is off.
   Quill::Ptr< ConfigSm > const & configSm() const noexcept { return configSm_.get(); }
   void configSmIs( Quill::Ptr< ConfigSm > configSm );

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
   Quill::Child< ConfigSm > configSm_;
};

// Whether the fault means that the library could not set up a VRF, whose name is the fault's key: its
// packet endpoint could not be opened, for example. The host takes the VRF's status entry out and puts
// it in again after a pause.
bool isVrfSetupFault( Quill::Fault const & fault ) noexcept;

// Makes the reactor, and with it the whole library. The configuration and status entities belong to
// the process; `allVrf` and `allIntf` come from allVrfFactory and allIntfFactory. No argument may
// be null. The process's endpoint provider (Corvid::rawTxPamProviderIs) must be installed.
// Everything that is configured runs when this returns.
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
