// valend on the real kernel: one network namespace is the machine, a second is VRF red, and the
// neighbors are in a third.
#pragma once

#include "settings/Hex.h"
#include "tests/system/DaemonProcess.h"

#include <nlohmann/json.hpp>
#include <thread>

namespace Valen::Test {

using Json = nlohmann::json;

// The machine has et1 and VRF red has et2; their far ends are far1 and far2.
class RunningDaemonTest : public NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      work_.emplace();
      machine_.emplace();
      red_.emplace();
      neighbors_.emplace();
      machine_->veth( "et1", *neighbors_, "far1" );
      red_->veth( "et2", *neighbors_, "far2" );
   }

   // Starts valend and waits until it answers.
   void start( std::string const & config, std::vector< std::string > const & more = {} ) {
      configure( config );
      launch( more );
      ASSERT_TRUE( eventually( [ this ] { return ctl( { "status" } ).status == 0; } ) )
         << daemon_->err();
   }
   void configure( std::string const & config ) const { work_->write( "valen.yaml", config ); }
   // Starts valend on the configuration in place, without waiting.
   void launch( std::vector< std::string > const & more = {}, int standardError = -1 ) {
      auto arguments = launcher_;
      arguments.insert( arguments.end(), { VALEND, "--config", *work_ / "valen.yaml", "--socket",
                                           socket(), "--state-directory", *work_ / "state" } );
      arguments.insert( arguments.end(), more.begin(), more.end() );
      daemon_.emplace( arguments, *work_ / "daemon", &*machine_, 0, standardError );
   }
   // As a crash ends it.
   void kill() {
      daemon_->signal( SIGKILL );
      daemon_->wait();
   }
   std::string socket() const { return *work_ / "sock"; }

   // Ethernet1 in the default VRF, Ethernet2 in red, held for `delayMs`.
   std::string config( int delayMs ) const {
      return "shutdown-delay-ms: " + std::to_string( delayMs ) +
             "\n"
             "vrfs: [{name: red, namespace: " +
             red_->text() +
             "}]\n"
             "interfaces:\n"
             "- {name: Ethernet1, device: et1}\n"
             "- {name: Ethernet2, device: et2, vrf: red}\n"
             "agents:\n"
             "- name: lldp\n"
             "  messages:\n"
             "    Ethernet1: [" +
             Settings::toHex( frame( "one" ) ) + ", " + Settings::toHex( frame( "two" ) ) +
             "]\n"
             "    Ethernet2: [" +
             Settings::toHex( frame( "red" ) ) + "]\n";
   }
   // Has every byte value, so that the test notices any that is lost or changed on the way.
   static std::string frame( std::string const & payload ) {
      std::string bytes;
      for ( int i = 0; i < 256; ++i ) {
         bytes += static_cast< char >( i );
      }
      return testFrame( payload + bytes );
   }

   Result ctl( std::vector< std::string > arguments, uid_t uid = 0 ) const {
      arguments.insert( arguments.begin(), { VALENCTL, "--socket", socket() } );
      Process command( arguments, *work_ / "ctl", nullptr, uid );
      auto const status = command.wait();
      return { status, command.out(), command.err() };
   }
   // An empty object while valend does not answer.
   Json interface( std::string const & name ) const {
      auto const status = Json::parse( ctl( { "status", "--json", name } ).out, nullptr, false );
      return status.contains( "interfaces" ) ? status[ "interfaces" ][ 0 ] : Json::object();
   }
   // The newest record of a shutdown; an empty object before the first.
   Json lastRecord( std::string const & name ) const {
      auto const history = Json::parse( ctl( { "history", name, "--json" } ).out, nullptr, false );
      return history.contains( "shutdowns" ) && !history[ "shutdowns" ].empty()
                ? history[ "shutdowns" ].back()
                : Json::object();
   }
   // Waits, with a generous timeout. Returns whether the interface became ready, or not ready for `why`.
   bool becomesReady( std::string const & name ) const {
      return eventually( [ & ] { return interface( name ).value( "ready", false ); } );
   }
   bool becomesUnready( std::string const & name, std::string const & why ) const {
      return eventually( [ & ] { return interface( name ).value( "notReady", Json() ) == why; } );
   }
   bool linkUp( TestNetNs const & netNs, std::string const & device ) const {
      return std::system(
                ( "ip -n " + netNs.text() + " -o link show " + device + " | grep -q '[<,]UP[,>]'" )
                   .c_str() ) == 0;
   }

   // Whether valend logs the text, or has. A thread writes the log: it may be later than an answer.
   bool logged( std::string const & text ) const {
      return eventually( [ & ] { return daemon_->err().find( text ) != std::string::npos; } );
   }

   template < class Condition >
   static bool eventually( Condition const & condition,
                           std::chrono::milliseconds timeout = std::chrono::seconds( 30 ) ) {
      auto const end = std::chrono::steady_clock::now() + timeout;
      while ( !condition() ) {
         if ( std::chrono::steady_clock::now() > end ) {
            return false;
         }
         std::this_thread::sleep_for( std::chrono::milliseconds( 5 ) );
      }
      return true;
   }

   std::optional< WorkDirectory > work_;
   std::optional< TestNetNs > machine_;
   std::optional< TestNetNs > red_;
   std::optional< TestNetNs > neighbors_;
   std::vector< std::string > launcher_; // a program that executes valend, with its arguments
   std::optional< Process > daemon_;
};

} // namespace Valen::Test
