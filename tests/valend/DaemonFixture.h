// The daemon's parts around the real library, on a fake kernel and a stepped clock.
#pragma once

#include "agent/RunnabilitySm.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "tests/valend/FakeKernel.h"
#include "tests/valend/FakeSpeakers.h"
#include "valend/base/Conditions.h"
#include "valend/base/FaultLog.h"
#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>

namespace Valend::Test {

using namespace std::chrono_literals;

// A frame that differs from others in its last byte.
inline std::string frame( char last ) {
   return std::string( 13, 'h' ) + last;
}

class DaemonFixture : public ::testing::Test {
 protected:
   // Shutdowns are recorded in `stateDirectory`; not at all when it is empty.
   explicit DaemonFixture( std::string const & stateDirectory = "" )
       : kernel( sent, work ), feeder( store, kernel, clock.scheduler(), conditions ),
         faults( [ this ]( auto const & fault ) {
            if ( Valen::isVrfSetupFault( fault ) ) {
               feeder.vrfFailed( fault.key, fault.text );
            }
         } ),
         stateDir( stateDirectory, []( auto const & ) {} ),
         journal( stateDir, clock.scheduler(), machine(), conditions, []( auto const & ) {} ),
         controller( store, feeder.config(), kernel, speakers, journal, conditions,
                     clock.scheduler(), work ) {
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

   // Runs posted work until none is left.
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

   // Enables an interface, runs the loop, and returns the result: "up", "already-up", "aborted", the name
   // and text of an error; empty until it is known.
   std::string enable( std::string const & interface, std::string const & by = "root" ) {
      return enable( controller, interface, by );
   }
   std::string enable( LinkController & links, std::string const & interface,
                       std::string const & by ) {
      auto const result = enabling( links, interface, by );
      turn();
      return *result;
   }
   // The same, without running the loop: what the result will be.
   std::shared_ptr< std::string > enabling( LinkController & links, std::string const & interface,
                                            std::string const & by = "root" ) {
      auto text = std::make_shared< std::string >();
      links.enable( interface, by, [ text ]( EnableResult const & result ) {
         auto const * const enabled = std::get_if< Enabled >( &result );
         *text += enabled ? std::array{ "up", "already-up", "aborted" }.at(
                               static_cast< std::size_t >( *enabled ) )
                          : std::get< Refusal >( result ).name() + ": " +
                               std::get< Refusal >( result ).what();
      } );
      return text;
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
   FakeSpeakers speakers;
   Store store;
   Feeder feeder;
   FaultLog faults;
   StateDirectory stateDir;
   Journal journal;
   LinkController controller;
   Quill::Ptr< Valen::RunnabilitySm > library;
};

} // namespace Valend::Test
