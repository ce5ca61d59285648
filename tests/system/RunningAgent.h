// The agent on the real kernel: in a namespace that stands for the machine, with VRF red in another
// and the neighbours in a third.
#pragma once

#include "settings/Hex.h"
#include "tests/system/AgentProcess.h"

#include <nlohmann/json.hpp>
#include <thread>

namespace Valen::Test {

using Json = nlohmann::json;

// A fixture with the machine, et1 in it, et2 in red, and their far ends far1 and far2.
class RunningAgentTest : public NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      work_.emplace();
      machine_.emplace();
      red_.emplace();
      neighbours_.emplace();
      for ( auto const * netNs : { &*machine_, &*red_, &*neighbours_ } ) {
         run( "ip netns exec " + netNs->text() +
              " sysctl -q -w net.ipv6.conf.all.disable_ipv6=1 "
              "net.ipv6.conf.default.disable_ipv6=1" );
      }
      machine_->veth( "et1", *neighbours_, "far1" );
      red_->veth( "et2", *neighbours_, "far2" );
   }

   // Starts the agent and waits until it answers.
   void start( std::string const & config, std::vector< std::string > const & more = {} ) {
      std::ofstream( *work_ / "valen.yaml" ) << config;
      std::vector< std::string > arguments{ VALEND,          "--config", *work_ / "valen.yaml",
                                            "--socket",      socket(),   "--state-directory",
                                            *work_ / "state" };
      arguments.insert( arguments.end(), more.begin(), more.end() );
      agent_.emplace( arguments, *work_ / "agent", &*machine_ );
      ASSERT_TRUE( eventually( [ this ] { return ctl( { "status" } ).status == 0; } ) )
         << agent_->err();
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
   // Every byte value occurs, so that nothing can be lost on the way.
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
   Json interface( std::string const & name ) const {
      auto const status = Json::parse( ctl( { "status", "--json", name } ).out, nullptr, false );
      return status.is_object() ? status[ "interfaces" ][ 0 ] : Json::object();
   }
   // Whether it comes to be, within a generous time.
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

   template < class Condition >
   static bool eventually( Condition const & condition,
                           std::chrono::milliseconds patience = std::chrono::seconds( 30 ) ) {
      auto const end = std::chrono::steady_clock::now() + patience;
      while ( !condition() ) {
         if ( std::chrono::steady_clock::now() > end ) {
            return false;
         }
         std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
      }
      return true;
   }

   std::optional< WorkDirectory > work_;
   std::optional< TestNetNs > machine_;
   std::optional< TestNetNs > red_;
   std::optional< TestNetNs > neighbours_;
   std::optional< Process > agent_;
};

} // namespace Valen::Test
