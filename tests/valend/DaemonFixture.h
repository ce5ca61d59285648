// The agent's parts around the real library, on a kernel and a clock that are turned by hand.
#pragma once

#include "agent/RunnabilitySm.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "types/KernelNetInfo.h"
#include "valend/base/Conditions.h"
#include "valend/base/FaultLog.h"
#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

namespace Valend::Test {

using namespace std::chrono_literals;

// Namespaces, devices and links, as the kernel would have them.
class FakeKernel final : public LinkPort, public Namespaces, public Orrery::MountProvider {
 public:
   explicit FakeKernel( Valen::Test::RecordingRawTxPams const & sent ) : sent_( sent ) {
      netNsIs( "default", "1:1" );
   }

   void netNsIs( std::string const & name, std::string const & identity ) {
      identities_[ name ] = identity;
   }
   void netNsDel( std::string const & name ) { identities_.erase( name ); }

   void deviceIs( std::string const & netNs, std::string const & name, U32 ifIndex ) {
      auto const entity = Quill::make< KernelNetInfo::Interface >( ifIndex );
      entity->deviceNameIs( name );
      status( netNs )->interfaceDel( ifIndex );
      status( netNs )->interfaceAdd( entity );
      devices_[ { netNs, name } ] = { ifIndex, true, true, 1500 };
   }
   void deviceDel( std::string const & netNs, std::string const & name ) {
      auto const found = devices_.find( { netNs, name } );
      auto const ifIndex = found->second.ifIndex;
      devices_.erase( found );
      status( netNs )->interfaceDel( ifIndex );
   }
   LinkDevice & at( std::string const & netNs, std::string const & name ) {
      return devices_.at( { netNs, name } );
   }

   // What was done to links, in order: "down default/et1".
   std::vector< std::string > actions;
   int upIsErrno = 0; // every upIs fails with it
   int upErrno = 0;   // every up() fails with it
   U64 outstanding = 0;

   std::optional< LinkDevice > device( LinkPlace const & place ) const override {
      auto const found = devices_.find( place );
      return found == devices_.end() ? std::nullopt : std::optional( found->second );
   }
   bool up( LinkPlace const & place ) override {
      failIf( upErrno );
      return require( place ).up;
   }
   void upIs( LinkPlace const & place, bool up ) override {
      failIf( upIsErrno );
      require( place ).up = up;
      actions.push_back( ( up ? "up " : "down " ) + place.netNs + "/" + place.device );
   }
   Counters counters( std::string const & ) const override {
      return { sent_.packets.size(), sent_.sends - sent_.packets.size() };
   }
   std::vector< RefusedPacket > refused( LinkPlace const & ) const override {
      std::vector< RefusedPacket > refused;
      for ( auto const packet : sent_.failedOfBurst ) {
         refused.push_back( { packet, sent_.sendErrno, "Network is down" } );
      }
      return refused;
   }
   U64 resyncs() const override { return 3; }
   U64 outstandingBytes( std::string const & ) const override { return outstanding; }

   NamespaceView look( std::string const & name ) const override {
      auto const found = identities_.find( name );
      return found == identities_.end() ? NamespaceView{ "", "no namespace " + name, true }
                                        : NamespaceView{ found->second, "", false };
   }

   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override {
      auto const netNs = path.substr( 7, path.size() - 7 - 7 ); // "kni/ns/NAME/status"
      return status( std::string( netNs ) );
   }
   void unmount( std::string_view ) override {}

 private:
   static void failIf( int number ) {
      if ( number ) {
         throw Quill::ErrnoException( "the kernel said " + std::to_string( number ), number );
      }
   }
   LinkDevice & require( LinkPlace const & place ) {
      auto const found = devices_.find( place );
      if ( found == devices_.end() ) {
         throw Quill::ErrnoException( "no device " + place.device, ENODEV );
      }
      return found->second;
   }
   Quill::Ptr< KernelNetInfo::Status > const & status( std::string const & netNs ) {
      auto & status = statuses_[ netNs ];
      if ( !status ) {
         status = Quill::make< KernelNetInfo::Status >( Corvid::NamespaceName( netNs ) );
      }
      return status;
   }

   Valen::Test::RecordingRawTxPams const & sent_;
   std::map< std::string, std::string > identities_;
   std::map< LinkPlace, LinkDevice > devices_;
   std::map< std::string, Quill::Ptr< KernelNetInfo::Status > > statuses_;
};

// A frame that is told from others by its last byte.
inline std::string frame( char last ) {
   return std::string( 13, 'h' ) + last;
}

class DaemonFixture : public ::testing::Test {
 protected:
   // Shutdowns are written down in `stateDirectory`; nowhere when it is empty.
   explicit DaemonFixture( std::string const & stateDirectory = "" )
       : kernel( sent ), feeder( store, kernel, clock.scheduler(), conditions ),
         faults( [ this ]( auto const & vrf, auto const & why ) { feeder.vrfFailed( vrf, why ); } ),
         journal( stateDirectory, machine(), []( bool, auto const & ) {} ),
         controller( store, feeder.config(), kernel, journal, clock.scheduler(), work ) {
      store.entityManager->mountProviderIs( "kni/ns/", &kernel );
   }
   ~DaemonFixture() override {
      libraryStop();
      store.entityManager->mountProviderIs( "kni/ns/", nullptr );
   }

   void libraryStart() {
      library = Valen::runnabilitySmFactory(
         store.configDir, store.agentConfigDir, store.allIntfConfigDir, store.allIntfStatusDir,
         store.allIntfStatusLocalDir, store.l3IntfStatusDir, store.allVrfStatusLocal,
         store.entityManager, store.statusDir, store.allVrf, store.allIntf );
   }
   void libraryStop() { library = nullptr; }

   // The machine's uptime is the stepped clock.
   Journal::Machine machine( std::string const & bootId = "this boot" ) const {
      return { bootId, [ this ] { return clock.now(); } };
   }

   // et1 in the default VRF and et2 in VRF red, both with frames of agent "lldp".
   static Settings::Config twoInterfaces() {
      Settings::Config config;
      config.shutdownDelayMs = 500;
      config.vrfs[ "red" ] = "ns-red";
      config.interfaces[ "Ethernet1" ] = { "Ethernet1", "et1", "default", true };
      config.interfaces[ "Ethernet2" ] = { "Ethernet2", "et2", "red", true };
      config.agents[ "lldp" ][ "Ethernet1" ] = { frame( 'a' ), frame( 'b' ) };
      config.agents[ "lldp" ][ "Ethernet2" ] = { frame( 'c' ) };
      return config;
   }
   // Their devices and namespaces, the library started on them.
   void start( Settings::Config const & config ) {
      kernel.netNsIs( "ns-red", "1:2" );
      kernel.deviceIs( "default", "et1", 7 );
      kernel.deviceIs( "ns-red", "et2", 7 );
      feeder.apply( config );
      libraryStart();
      turn();
   }

   // Runs posted work until there is none.
   void turn() {
      while ( !work.empty() ) {
         work.run();
      }
   }
   void advance( std::chrono::milliseconds duration ) {
      turn();
      for ( ; duration.count() > 0; duration -= 1ms ) {
         clock.advance( 1ms );
         turn();
      }
   }

   bool ready( std::string const & interface ) const {
      auto const status = store.statusDir->intfStatus( interface );
      return status && status->shouldDelay();
   }
   bool delayed( std::string const & interface ) const {
      auto const status = store.statusDir->intfStatus( interface );
      return status && status->delayed();
   }
   std::vector< std::string > sentFrames() const {
      std::vector< std::string > frames;
      for ( auto const & packet : sent.packets ) {
         frames.push_back( packet.netNs + "/" + std::to_string( packet.ifIndex ) + ":" +
                           packet.bytes.back() );
      }
      return frames;
   }

   // The frames that a shutdown sends: sets the flag of the interface and clears it again.
   std::vector< std::string > framesOf( std::string const & interface ) {
      auto const before = sent.packets.size();
      auto const config = store.allIntfConfigDir->intfConfig( interface );
      config->adminShutdownDelayedIs( true );
      config->adminShutdownDelayedIs( false );
      auto frames = sentFrames();
      return { frames.begin() + static_cast< std::ptrdiff_t >( before ), frames.end() };
   }

   Valen::Test::LeakCheck leaks;
   Valen::Test::SteppedClock clock;
   Valen::Test::RecordingRawTxPams sent;
   Gantry::WorkQueue work;
   Conditions conditions{ []( auto, auto const & ) {} };
   FakeKernel kernel;
   Store store;
   Feeder feeder;
   FaultLog faults;
   Journal journal;
   LinkController controller;
   Quill::Ptr< Valen::RunnabilitySm > library;
};

} // namespace Valend::Test
