// The state store of a process and the kernel below it, filled by hand: what the library is given,
// the devices of each namespace behind the mounts, and the writes of a feeder.
#pragma once

#include "agent/ConfigSm.h"
#include "agent/RunnabilitySm.h"
#include "intf/IntfIoSm.h"
#include "types/KernelNetInfo.h"

#include <initializer_list>
#include <map>
#include <set>
#include <string>

namespace Valen::Test {

// Replaces the watchers of namespaces: publishes the devices that the test has made at
// "kni/ns/NAME/status".
class KernelDevices final : public Orrery::MountProvider {
 public:
   static constexpr char const * prefix = "kni/ns/";

   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override {
      auto const name = path.substr( std::string_view( prefix ).size() );
      auto const netNs = std::string( name.substr( 0, name.find( '/' ) ) );
      mounted.insert( netNs );
      return status( netNs );
   }
   void unmount( std::string_view path ) override {
      auto const name = path.substr( std::string_view( prefix ).size() );
      mounted.erase( std::string( name.substr( 0, name.find( '/' ) ) ) );
   }

   Quill::Ptr< KernelNetInfo::Status > status( std::string const & netNs ) {
      auto & status = statuses_[ netNs ];
      if ( !status ) {
         status = Quill::make< KernelNetInfo::Status >( netNs.c_str() );
      }
      return status;
   }
   void deviceIs( std::string const & netNs, std::string const & deviceName, U32 ifIndex ) {
      auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
      device->deviceNameIs( deviceName );
      status( netNs )->interfaceAdd( device );
   }
   void deviceDel( std::string const & netNs, U32 ifIndex ) {
      status( netNs )->interfaceDel( ifIndex );
   }

   std::set< std::string > mounted; // namespaces whose status is mounted now

 private:
   std::map< std::string, Quill::Ptr< KernelNetInfo::Status > > statuses_;
};

// The entities that a process passes to the library. bench/Store.h is separate on purpose: it builds large
// stores at full speed and keeps what it changes at hand, while this one is written to by name.
struct AgentStore {
   AgentStore() { entityManager->mountProviderIs( KernelDevices::prefix, &kernel ); }

   Quill::Ptr< RunnabilitySm > newRunnabilitySm() {
      return runnabilitySmFactory( configDir, agentConfigDir, allIntfConfigDir, allIntfStatusDir,
                                   allIntfStatusLocalDir, l3IntfStatusDir, allVrfStatusLocal,
                                   entityManager, statusDir, allVrf, allIntf );
   }
   Quill::Ptr< ConfigSm > newConfigSm() {
      return configSmFactory( configDir, agentConfigDir, allIntfConfigDir, allIntfStatusDir,
                              allIntfStatusLocalDir, l3IntfStatusDir, allVrfStatusLocal,
                              entityManager, statusDir, allVrf, allIntf );
   }

   void globalConfigIs( U16 shutdownDelayMs ) {
      auto const globalConfig = Quill::make< Config::GlobalConfig >();
      globalConfig->shutdownDelayMsIs( shutdownDelayMs );
      configDir->globalConfigIs( globalConfig );
   }
   void globalConfigDel() { configDir->globalConfigIs( nullptr ); }

   // The message directory of an agent; null if the agent does not have one.
   Quill::Ptr< Config::Agent::MessageDir > messageDir( std::string const & agent ) const {
      auto const agentDir = Quill::ptrCast< Quill::Dir >( agentConfigDir->entry( agent ) );
      return agentDir ? Quill::ptrCast< Config::Agent::MessageDir >( agentDir->entry( "messages" ) )
                      : nullptr;
   }
   // Makes the agent, with an empty message directory, if it does not exist.
   Quill::Ptr< Config::Agent::MessageDir > agentIs( std::string const & agent ) {
      if ( !messageDir( agent ) ) {
         auto const agentDir = Quill::make< Quill::Dir >();
         agentDir->entryIs( "messages", Quill::make< Config::Agent::MessageDir >() );
         agentConfigDir->entryIs( agent, agentDir );
      }
      return messageDir( agent );
   }
   // The frames of an agent for an interface: filled, then published.
   void messageIs( std::string const & agent, std::string const & intfId,
                   std::vector< std::string > const & frames ) {
      auto const message = Quill::make< Config::Agent::Message >( intfId.c_str() );
      for ( auto const & frame : frames ) {
         message->messageEnq( frame );
      }
      agentIs( agent )->messageIs( intfId.c_str(), message );
   }

   Quill::Ptr< Interface::IntfConfig > intfConfigIs( std::string const & intfId,
                                                     bool supported = true, bool delayed = false ) {
      auto const intfConfig = Quill::make< Interface::IntfConfig >( intfId.c_str() );
      intfConfig->adminShutdownDelaySupportedIs( supported );
      intfConfig->adminShutdownDelayableIs( true );
      intfConfig->adminShutdownDelayedIs( delayed );
      allIntfConfigDir->intfConfigAdd( intfConfig );
      return intfConfig;
   }
   Quill::Ptr< L3::Intf::Status > l3StatusIs( std::string const & intfId,
                                              std::string const & vrf ) {
      auto const status = Quill::make< L3::Intf::Status >( intfId.c_str() );
      status->vrfIs( vrf.c_str() );
      l3IntfStatusDir->intfStatusAdd( status );
      return status;
   }
   Quill::Ptr< Ip::VrfStatusLocal > vrfStatusIs( std::string const & vrf, std::string const & netNs,
                                                 Ip::VrfState state = Ip::VrfState::active ) {
      auto const status = Quill::make< Ip::VrfStatusLocal >( vrf.c_str() );
      status->stateIs( state );
      status->networkNamespaceIs( netNs.c_str() );
      allVrfStatusLocal->vrfAdd( status );
      return status;
   }

   KernelDevices kernel;
   Quill::Ptr< Config::ConfigDir > configDir = Quill::make< Config::ConfigDir >();
   Quill::Ptr< Quill::Dir > agentConfigDir = Quill::make< Quill::Dir >();
   Quill::Ptr< Interface::AllIntfConfigDir > allIntfConfigDir =
      Quill::make< Interface::AllIntfConfigDir >();
   Quill::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir =
      Quill::make< Interface::AllIntfStatusDir >();
   Quill::Ptr< Interface::AllIntfStatusLocalDir > allIntfStatusLocalDir =
      Quill::make< Interface::AllIntfStatusLocalDir >();
   Quill::Ptr< L3::Intf::StatusDir > l3IntfStatusDir = Quill::make< L3::Intf::StatusDir >();
   Quill::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal = Quill::make< Ip::AllVrfStatusLocal >();
   Quill::Ptr< Orrery::EntityManager > entityManager = Quill::make< Orrery::EntityManager >();
   Quill::Ptr< Status::StatusDir > statusDir = Quill::make< Status::StatusDir >();
   Quill::Ptr< AllVrf > allVrf = allVrfFactory();
   Quill::Ptr< AllIntf > allIntf = allIntfFactory();
};

} // namespace Valen::Test
