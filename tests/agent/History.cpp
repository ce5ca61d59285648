#include "tests/agent/History.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

namespace Valen::Test {

History::History() {
   intfs = { { "Ethernet1", "", {}, {}, {}, false, "", {} },
             { "Ethernet2", "", {}, {}, {}, false, "", {} },
             { "Ethernet3/1", "et3_1", {}, {}, {}, false, "", {} },
             { "Ethernet4", "", {}, {}, {}, false, "", {} },
             { "Vlan10", "vlan10", {}, {}, {}, false, "", {} },
             { "Loopback0", "", {}, {}, {}, false, "", {} } };
   vrfs = { { "default", "default", {}, false, false },
            { "red", "ns-red", {}, false, false },
            { "blue", "ns-blue", {}, false, false } };
}

History::~History() {
   stop();
   store_.globalConfigDel();
}

// --- The writes ----------------------------------------------------------------------------------

void History::start() {
   store_.statusDir->agentActiveIs( false );
   store_.statusDir->intfStatusIs( "left by a crash" );
   sm_ = store_.newRunnabilitySm();
   settle();
}

void History::stop() {
   sm_ = nullptr;
   EXPECT_EQ( store_.statusDir->intfStatuss(), 0u );
   settle();
}

void History::globalConfigIs( U16 delayMs ) {
   store_.globalConfigIs( delayMs );
   settle();
}

void History::globalConfigDel() {
   store_.globalConfigDel();
   settle();
}

void History::messageIs( Intf & intf, std::string const & agent, Frames frames ) {
   if ( agents.insert( agent ).second ) {
      for ( auto & each : intfs ) {
         each.messages.erase( agent );
      }
   }
   store_.messageIs( agent, intf.id, frames );
   intf.messages[ agent ] = std::move( frames );
   settle();
}

void History::messageDel( Intf & intf, std::string const & agent ) {
   if ( intf.messages.erase( agent ) ) {
      store_.messageDir( agent )->messageDel( intf.id.c_str() );
      republish( { &intf } );
   }
}

void History::agentIs( std::string const & agent ) {
   agents.insert( agent );
   auto const messageDir = Quill::make< Config::Agent::MessageDir >();
   for ( auto & intf : intfs ) {
      auto const message = Quill::make< Config::Agent::Message >( intf.id.c_str() );
      message->messageEnq( "of " + agent );
      messageDir->messageIs( intf.id.c_str(), message );
      intf.messages[ agent ] = { "of " + agent };
   }
   auto const agentDir = Quill::make< Quill::Dir >();
   agentDir->entryIs( "messages", messageDir );
   store_.agentConfigDir->entryIs( agent.c_str() ); // not yet instantiated
   store_.agentConfigDir->entryIs( agent.c_str(), agentDir );
   settle();
}

void History::agentDel( std::string const & agent ) {
   agents.erase( agent );
   std::vector< Intf * > lost;
   for ( auto & intf : intfs ) {
      if ( intf.messages.erase( agent ) ) {
         lost.push_back( &intf );
      }
   }
   store_.agentConfigDir->entryDel( agent.c_str() );
   republish( lost );
}

void History::configIs( Intf & intf, bool supported, bool shutdown ) {
   configDel( intf );
   intf.config = store_.intfConfigIs( intf.id, supported, shutdown );
   settle();
}

void History::configDel( Intf & intf ) {
   intf.config = nullptr;
   store_.allIntfConfigDir->intfConfigDel( intf.id.c_str() );
   settle();
}

void History::shutdownIs( Intf & intf, bool shutdown ) {
   if ( !intf.config || intf.config->adminShutdownDelayed() == shutdown ) {
      return;
   }
   pams_.packets.clear();
   intf.config->adminShutdownDelayedIs( shutdown );
   if ( ready( intf ) && promised( intf ) ) {
      intf.until.reset();
      if ( shutdown ) {
         ++delaysStarted_;
         expectFrames( intf );
         intf.until = clock_.now() + std::chrono::milliseconds(
                                        store_.configDir->globalConfig()->shutdownDelayMs() );
      }
   }
   settle();
}

void History::l3StatusIs( Intf & intf, std::string const & vrf ) {
   if ( !intf.l3Status ) {
      intf.l3Status = store_.l3StatusIs( intf.id, vrf );
   } else if ( intf.l3Status->vrf().view() != vrf ) {
      intf.until.reset(); // it leaves before it joins
      intf.l3Status->vrfIs( vrf.c_str() );
   }
   settle();
}

void History::l3StatusDel( Intf & intf ) {
   intf.l3Status = nullptr;
   store_.l3IntfStatusDir->intfStatusDel( intf.id.c_str() );
   settle();
}

void History::intfStatusIs( Intf & intf, bool present ) {
   if ( intf.hasStatus == present ) {
      return;
   }
   intf.hasStatus = present;
   if ( present ) {
      auto const status = Quill::make< Interface::IntfStatus >( intf.id.c_str() );
      status->deviceNameIs( intf.mappedDevice.c_str() );
      store_.allIntfStatusDir->intfStatusAdd( status );
   } else {
      store_.allIntfStatusDir->intfStatusDel( intf.id.c_str() );
   }
   settle();
}

void History::localNetNsIs( Intf & intf, std::string const & netNs ) {
   intf.localNetNs = netNs;
   if ( netNs.empty() ) {
      store_.allIntfStatusLocalDir->intfStatusLocalDel( intf.id.c_str() );
   } else {
      store_.allIntfStatusLocalDir->intfStatusLocalIs( intf.id.c_str() )
         ->netNsNameIs( netNs.c_str() );
   }
   settle();
}

void History::vrfIs( VrfPicture & vrf, std::string const & netNs, Ip::VrfState state ) {
   vrfDel( vrf );
   vrf.netNs = netNs;
   vrf.status = store_.vrfStatusIs( vrf.name, netNs, state );
   settle();
}

void History::vrfStateIs( VrfPicture & vrf, Ip::VrfState state ) {
   if ( vrf.status ) {
      vrf.status->stateIs( state );
      settle();
   }
}

void History::vrfDel( VrfPicture & vrf ) {
   store_.allVrfStatusLocal->vrfDel( vrf.name.c_str() );
   vrf.status = nullptr;
   vrf.broken = false;
   settle();
}

void History::vrfBreaks( VrfPicture & vrf, std::string const & netNs, int error ) {
   vrfDel( vrf );
   vrf.netNs = netNs;
   vrf.broken = true;
   vrf.keepsNetNs = true;
   pams_.enableErrno = error;
   vrf.status = store_.vrfStatusIs( vrf.name, netNs );
   pams_.enableErrno = 0;
   bool const tolerated = error == ENOENT || error == EINVAL;
   EXPECT_LE( faults_.messages().size(), tolerated ? 0u : 1u );
   faults_.clear();
   settle();
}

void History::deviceIs( std::string const & netNs, std::string const & name ) {
   auto const ifIndex = nextIfIndex_++;
   devices[ netNs ].push_back( { name, ifIndex } );
   store_.kernel.deviceIs( netNs, name, ifIndex );
   settle();
}

void History::deviceRename( std::string const & netNs, U32 ifIndex, std::string const & name ) {
   auto const device = store_.kernel.status( netNs )->interface( ifIndex );
   if ( device->deviceName().view() == name ) {
      return;
   }
   auto & present = devices[ netNs ];
   std::erase_if( present, [ = ]( Device const & each ) { return each.ifIndex == ifIndex; } );
   present.push_back( { name, ifIndex } );
   device->deviceNameIs( name.c_str() );
   settle();
}

void History::deviceDel( std::string const & netNs, U32 ifIndex ) {
   std::erase_if( devices[ netNs ],
                  [ = ]( Device const & each ) { return each.ifIndex == ifIndex; } );
   store_.kernel.deviceDel( netNs, ifIndex );
   settle();
}

void History::advance( Gantry::Time duration ) {
   clock_.advance( duration );
   for ( auto & intf : intfs ) {
      if ( intf.until && *intf.until <= clock_.now() ) {
         intf.until.reset();
      }
   }
   settle();
}

void History::republish( std::vector< Intf * > const & lost ) {
   std::vector< std::pair< Intf *, std::string > > taken;
   for ( auto * const intf : lost ) {
      if ( intf->messages.empty() && intf->l3Status ) {
         taken.emplace_back( intf, intf->l3Status->vrf().stdString() );
         intf->l3Status = nullptr;
         store_.l3IntfStatusDir->intfStatusDel( intf->id.c_str() );
      }
   }
   settle();
   for ( auto const & [ intf, vrf ] : taken ) {
      l3StatusIs( *intf, vrf );
   }
}

// --- The model -----------------------------------------------------------------------------------

std::optional< std::string > History::netNsOf( std::string const & name ) const {
   for ( auto const & each : vrfs ) {
      if ( each.name == name &&
           ( name == "default" ||
             ( each.status && each.status->state() == Ip::VrfState::active ) ) ) {
         return each.netNs;
      }
   }
   return std::nullopt;
}

History::Device const * History::deviceOf( Intf const & intf ) const {
   auto const netNs = intf.l3Status ? netNsOf( intf.l3Status->vrf().stdString() ) : std::nullopt;
   if ( !netNs || ( !intf.localNetNs.empty() && intf.localNetNs != *netNs ) ) {
      return nullptr;
   }
   auto const present = devices.find( *netNs );
   auto const name = intf.hasStatus && !intf.mappedDevice.empty() ? intf.mappedDevice : intf.id;
   Device const * last = nullptr; // of several devices of one name, the one named so last counts
   if ( present != devices.end() ) {
      for ( auto const & device : present->second ) {
         last = device.name == name ? &device : last;
      }
   }
   return last;
}

bool History::ready( Intf const & intf ) const {
   return on() && !intf.messages.empty() && intf.config &&
          intf.config->adminShutdownDelaySupported() && deviceOf( intf );
}

bool History::promised( Intf const & intf ) const {
   for ( auto const & each : vrfs ) {
      if ( each.broken && intf.l3Status && intf.l3Status->vrf().view() == each.name ) {
         return false;
      }
   }
   return true;
}

// --- Invariants ----------------------------------------------------------------------------------

void History::expectFrames( Intf const & intf ) {
   std::multiset< std::string > wanted;
   for ( auto const & [ agent, frames ] : intf.messages ) {
      wanted.insert( frames.begin(), frames.end() );
   }
   std::multiset< std::string > sent;
   for ( auto const & packet : pams_.packets ) {
      sent.insert( packet.bytes );
      EXPECT_EQ( packet.ifIndex, deviceOf( intf )->ifIndex );
      EXPECT_EQ( packet.netNs, *netNsOf( intf.l3Status->vrf().stdString() ) );
   }
   EXPECT_EQ( sent, wanted ) << intf.id;
}

void History::settle() {
   for ( auto & intf : intfs ) {
      if ( !ready( intf ) || !promised( intf ) ) {
         intf.until.reset();
      }
      checkIntf( intf );
   }
   checkCounts();
   EXPECT_TRUE( faults_.messages().empty() ) << faults_.messages().front();
}

void History::checkIntf( Intf const & intf ) {
   Corvid::IntfId const intfId( intf.id.c_str() );
   bool const hasMessages = on() && !intf.messages.empty();
   EXPECT_EQ( store_.allIntf->intfMessageHas( intfId ), hasMessages ) << intf.id;
   EXPECT_EQ( store_.allIntf->intfHas( intfId ), hasMessages ) << intf.id;

   auto const entry = store_.statusDir->intfStatus( intfId );
   if ( promised( intf ) ) {
      EXPECT_EQ( entry != nullptr, ready( intf ) ) << intf.id;
      EXPECT_EQ( entry && entry->delayed(), intf.until.has_value() ) << intf.id;
   }
   EXPECT_TRUE( !entry || entry->shouldDelay() ) << intf.id;

   Quill::Ptr< IntfIoSm > ioSm;
   if ( on() && sm_->configSm() ) {
      for ( auto const & container : sm_->configSm()->vrfContainerSm() ) {
         if ( auto const intfSm = container->intfSm( intfId ) ) {
            EXPECT_FALSE( ioSm ) << intf.id << " has two";
            ioSm = intfSm->intfIoSm();
         }
      }
   }
   EXPECT_EQ( ioSm != nullptr, entry != nullptr ) << intf.id;
   if ( ioSm && entry ) {
      auto const task = ioSm->shutdownDelayTask();
      EXPECT_EQ( task->taskScheduled(), entry->delayed() ) << intf.id;
      EXPECT_TRUE( !intf.until || task->deadline() == *intf.until ) << intf.id;
   }
}

void History::checkCounts() {
   U32 entries = 0;
   U32 delays = 0;
   for ( auto const & intf : intfs ) {
      auto const entry = store_.statusDir->intfStatus( intf.id.c_str() );
      entries += entry ? 1 : 0;
      delays += entry && entry->delayed() ? 1 : 0;
   }
   EXPECT_EQ( store_.statusDir->intfStatuss(), entries );
   EXPECT_EQ( clock_.scheduler()->armedTasks(), delays );
   if ( sm_ ) {
      EXPECT_EQ( store_.statusDir->agentActive(), on() );
      EXPECT_EQ( sm_->configSm() != nullptr, on() );
   }
   auto const containers = on() && sm_->configSm() ? sm_->configSm()->vrfContainerSms() : 0u;
   EXPECT_EQ( pams_.live, containers );
   checkMounts();
   if ( !on() ) {
      EXPECT_EQ( store_.allVrf->vrfs(), 0u );
      EXPECT_EQ( store_.allVrf->vrfL3Intfs(), 0u );
      EXPECT_EQ( store_.allIntf->intfs(), 0u );
   }
}

// Every container's namespace is mounted. Beyond these, only a VRF that could not be opened keeps its
// namespace, until it has a container again.
void History::checkMounts() {
   auto const & mounted = store_.kernel.mounted;
   EXPECT_EQ( store_.entityManager->mounts(), mounted.size() );
   std::set< std::string > used;
   for ( auto & vrf : vrfs ) {
      auto const configSm = on() ? sm_->configSm() : nullptr;
      auto const container = configSm ? configSm->vrfContainerSm( vrf.name ) : nullptr;
      vrf.keepsNetNs = configSm && !container && vrf.keepsNetNs;
      if ( container ) {
         used.insert( container->vrf()->nsName().stdString() );
         EXPECT_TRUE( mounted.contains( container->vrf()->nsName().stdString() ) ) << vrf.name;
      } else if ( vrf.keepsNetNs ) {
         used.insert( configSm->kernelIntf()->namespaceName( vrf.name ).stdString() );
      }
   }
   for ( auto const & netNs : mounted ) {
      EXPECT_TRUE( used.contains( netNs ) ) << netNs;
   }
}

} // namespace Valen::Test
