// Random histories of configuration and status, each write checked. A history that fails prints
// its seed and its last steps; the seeds are fixed, so it fails again.
#include "tests/agent/History.h"
#include "tests/support/LeakCheck.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <random>

namespace Valen {
namespace {

using Test::History;
using namespace std::chrono_literals;

// The steps of the current history, printed when it fails.
class Diary {
 public:
   explicit Diary( unsigned seed )
       : seed_( seed ), old_( Quill::abortHookIs( &Diary::abortHook ) ) {
      current_ = this;
   }
   ~Diary() {
      current_ = nullptr;
      Quill::abortHookIs( old_ );
   }
   void note( std::string step ) {
      ++steps_;
      last_.push_back( std::to_string( steps_ ) + " " + std::move( step ) );
      if ( last_.size() > 25 ) {
         last_.pop_front();
      }
   }
   std::string text() const {
      std::string text = "history of seed " + std::to_string( seed_ ) + ", the last steps:\n";
      for ( auto const & step : last_ ) {
         text += "   " + step + "\n";
      }
      return text;
   }

 private:
   static void abortHook() noexcept {
      if ( current_ ) {
         std::cerr << current_->text();
      }
   }

   static inline Diary const * current_ = nullptr;
   unsigned const seed_;
   Quill::AbortHook const old_;
   unsigned steps_ = 0;
   std::deque< std::string > last_;
};

class RandomHistory {
 public:
   explicit RandomHistory( unsigned seed ) : random_( seed ), diary_( seed ) {}

   // Returns whether all went well.
   bool run( unsigned steps ) {
      settleIn();
      for ( unsigned i = 0; i < steps && !testing::Test::HasFailure(); ++i ) {
         step();
      }
      note( "end" );
      EXPECT_GT( history_.delaysStarted(), 10u ) << "too few delays were started";
      history_.stop();
      if ( testing::Test::HasFailure() ) {
         ADD_FAILURE() << diary_.text();
      }
      return !testing::Test::HasFailure();
   }

 private:
   unsigned below( unsigned limit ) { return static_cast< unsigned >( random_() % limit ); }
   bool chance( unsigned percent ) { return below( 100 ) < percent; }
   template < class C > auto & any( C & values ) {
      return values[ below( static_cast< unsigned >( values.size() ) ) ];
   }
   void note( std::string text ) { diary_.note( std::move( text ) ); }

   // The library starts on a populated store.
   void settleIn() {
      for ( auto & vrf : history_.vrfs ) {
         if ( vrf.name != "default" ) {
            history_.vrfIs( vrf, vrf.netNs, Ip::VrfState::active );
         }
      }
      for ( unsigned i = 0; i < history_.intfs.size(); ++i ) {
         auto & intf = history_.intfs[ i ];
         auto const & vrf = history_.vrfs[ i % history_.vrfs.size() ];
         history_.intfStatusIs( intf, true );
         history_.configIs( intf, true, false );
         history_.l3StatusIs( intf, vrf.name );
         history_.deviceIs( vrf.netNs, intf.mappedDevice.empty() ? intf.id : intf.mappedDevice );
      }
      history_.agentIs( "lacp" );
      history_.globalConfigIs( 800 );
      history_.start();
   }

   void step() {
      auto const kind = below( 100 );
      if ( kind < 26 ) {
         stepShutdown();
      } else if ( kind < 32 ) {
         stepRepair();
      } else if ( kind < 42 ) {
         stepTime();
      } else if ( kind < 50 ) {
         stepMessages();
      } else if ( kind < 57 ) {
         stepConfig();
      } else if ( kind < 68 ) {
         stepL3();
      } else if ( kind < 77 ) {
         stepVrf();
      } else if ( kind < 93 ) {
         stepDevice();
      } else if ( kind < 96 ) {
         stepIntfStatus();
      } else {
         stepFeature();
      }
   }

   // Adds what one interface lacks, so that histories stay where delays happen.
   void stepRepair() {
      auto & intf = any( history_.intfs );
      auto & vrf = any( history_.vrfs );
      note( "repair " + intf.id + " in " + vrf.name );
      if ( !vrf.status && vrf.name != "default" ) {
         history_.vrfIs( vrf, netNsFor( vrf ), Ip::VrfState::active );
      }
      history_.vrfStateIs( vrf, Ip::VrfState::active );
      history_.intfStatusIs( intf, true );
      history_.localNetNsIs( intf, "" );
      history_.l3StatusIs( intf, vrf.name );
      if ( intf.messages.empty() ) {
         history_.messageIs( intf, "stp", { "repaired" } );
      }
      if ( !intf.config || !intf.config->adminShutdownDelaySupported() ) {
         history_.configIs( intf, true, false );
      }
      if ( !history_.deviceOf( intf ) ) {
         history_.deviceIs( vrf.netNs, intf.mappedDevice.empty() ? intf.id : intf.mappedDevice );
      }
   }

   void stepShutdown() {
      auto & intf = any( history_.intfs );
      bool const shutdown = intf.config && !intf.config->adminShutdownDelayed();
      note( intf.id + ( shutdown ? " shutdown" : " no shutdown" ) );
      history_.shutdownIs( intf, shutdown );
   }

   void stepTime() {
      auto const ms = chance( 20 ) ? 0 : below( 1500 );
      note( "time " + std::to_string( ms ) );
      history_.advance( std::chrono::milliseconds( ms ) );
   }

   void stepMessages() {
      static std::vector< std::string > const names{ "lacp", "lldp", "stp" };
      auto const & agent = any( names );
      auto & intf = any( history_.intfs );
      bool const isThere = history_.agents.contains( agent );
      auto const kind = below( 100 );
      if ( kind < 60 ) {
         History::Frames frames( 1 + below( 3 ) );
         for ( auto & frame : frames ) {
            frame = agent + std::to_string( below( 1000 ) );
         }
         note( "message " + agent + " " + intf.id );
         history_.messageIs( intf, agent, frames );
      } else if ( kind < 85 ) {
         note( "no message " + agent + " " + intf.id );
         history_.messageDel( intf, agent );
      } else if ( isThere ) {
         note( "no agent " + agent );
         history_.agentDel( agent );
      } else {
         note( "agent " + agent );
         history_.agentIs( agent );
      }
   }

   void stepConfig() {
      auto & intf = any( history_.intfs );
      if ( chance( 15 ) ) {
         note( "no config " + intf.id );
         history_.configDel( intf );
      } else {
         bool const supported = chance( 90 );
         note( "config " + intf.id + ( supported ? "" : " unsupported" ) );
         history_.configIs( intf, supported, chance( 20 ) );
      }
   }

   void stepL3() {
      static std::vector< std::string > const names{ "default", "default", "red",  "red",    "red",
                                                     "red",     "blue",    "blue", "unknown" };
      auto & intf = any( history_.intfs );
      if ( chance( 15 ) ) {
         note( "no l3 " + intf.id );
         history_.l3StatusDel( intf );
      } else {
         auto const & vrf = any( names );
         note( "l3 " + intf.id + " " + vrf );
         history_.l3StatusIs( intf, vrf );
      }
   }

   // One of the namespaces that this VRF alone uses.
   std::string netNsFor( History::VrfPicture const & vrf ) {
      return "ns-" + vrf.name + ( chance( 30 ) ? "2" : "" );
   }

   void stepVrf() {
      static std::vector< int > const errors{ ENOENT, EINVAL, EMFILE, EPERM };
      auto & vrf = history_.vrfs[ 1 + below( 2 ) ];
      auto const netNs = netNsFor( vrf );
      auto const state = chance( 75 ) ? Ip::VrfState::active : Ip::VrfState::deleting;
      auto const kind = below( 100 );
      if ( kind < 10 ) {
         auto const error = any( errors );
         note( "vrf " + vrf.name + " " + netNs + " breaks " + std::to_string( error ) );
         history_.vrfBreaks( vrf, netNs, error );
      } else if ( kind < 18 ) {
         note( "no vrf " + vrf.name );
         history_.vrfDel( vrf );
      } else if ( kind < 50 && vrf.status ) {
         note( "vrf " + vrf.name + " state " + Quill::display( state ) );
         history_.vrfStateIs( vrf, state );
      } else {
         note( "vrf " + vrf.name + " " + netNs + " state " + Quill::display( state ) );
         history_.vrfIs( vrf, netNs, state );
      }
   }

   void stepDevice() {
      static std::vector< std::string > const names{ "Ethernet1", "Ethernet2", "et3_1",
                                                     "Ethernet4", "vlan10",    "Loopback0" };
      static std::vector< std::string > const namespaces{ "default", "default", "default",
                                                          "ns-red",  "ns-red",  "ns-red",
                                                          "ns-blue", "ns-blue", "ns-red2" };
      auto const & netNs = any( namespaces );
      auto const & name = any( names );
      auto const & present = history_.devices[ netNs ];
      bool const isFree = std::none_of( present.begin(), present.end(),
                                        [ & ]( auto const & each ) { return each.name == name; } );
      auto const kind = below( 100 );
      if ( present.empty() || ( kind < 60 && isFree ) ) {
         note( "device " + netNs + " " + name );
         history_.deviceIs( netNs, name );
         return;
      }
      auto const device = present[ below( static_cast< unsigned >( present.size() ) ) ];
      if ( kind < 66 && isFree ) {
         note( "device " + netNs + " " + device.name + " becomes " + name );
         history_.deviceRename( netNs, device.ifIndex, name );
      } else if ( kind < 90 ) {
         stepDeviceAnew( netNs, device );
      } else {
         note( "no device " + netNs + " " + device.name );
         history_.deviceDel( netNs, device.ifIndex );
      }
   }

   // The device is made again under its name, with another index. The watcher may hear of the new
   // one first; for no longer than that do two bear one name.
   void stepDeviceAnew( std::string const & netNs, History::Device const & device ) {
      bool const newFirst = chance( 50 );
      note( "device " + netNs + " " + device.name + ( newFirst ? " exchanged" : " remade" ) );
      if ( newFirst ) {
         history_.deviceIs( netNs, device.name );
      }
      history_.deviceDel( netNs, device.ifIndex );
      if ( !newFirst ) {
         history_.deviceIs( netNs, device.name );
      }
   }

   void stepIntfStatus() {
      static std::vector< std::string > const namespaces{ "", "", "", "default", "ns-red" };
      auto & intf = any( history_.intfs );
      if ( chance( 60 ) ) {
         note( "status " + intf.id + ( intf.hasStatus ? " goes" : " comes" ) );
         history_.intfStatusIs( intf, !intf.hasStatus );
      } else {
         auto const & netNs = any( namespaces );
         note( "place " + intf.id + " " + netNs );
         history_.localNetNsIs( intf, netNs );
      }
   }

   void stepFeature() {
      auto const kind = below( 100 );
      auto const delayMs = static_cast< U16 >( chance( 10 ) ? 0 : below( 2000 ) );
      if ( kind < 75 ) {
         note( "feature on, " + std::to_string( delayMs ) );
         history_.globalConfigIs( delayMs );
      } else if ( kind < 83 ) {
         note( "feature off" );
         history_.globalConfigDel();
      } else {
         note( "restart" );
         history_.stop();
         history_.start();
      }
   }

   Test::LeakCheck const leakCheck_;
   std::mt19937 random_;
   Diary diary_;
   History history_;
};

class HistoriesTest : public testing::TestWithParam< unsigned > {};

TEST_P( HistoriesTest, EveryWriteLeavesWhatTheRulesDemand ) {
   RandomHistory history( GetParam() );
   history.run( 600 );
}

// Twenty, or as many as VALEN_HISTORIES says, for a long search.
unsigned histories() {
   auto const * const wanted = std::getenv( "VALEN_HISTORIES" );
   return wanted ? static_cast< unsigned >( std::strtoul( wanted, nullptr, 10 ) ) : 20;
}

INSTANTIATE_TEST_SUITE_P( Seeds, HistoriesTest, testing::Range( 1u, 1 + histories() ) );

} // namespace
} // namespace Valen
