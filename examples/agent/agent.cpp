// Embeds libvalen: shuts down one device. Sends the frame that is queued for it, keeps its link up for
// half a second, and sets it down.
//   agent DEVICE
#include <iostream>
#include <valen/agent/RunnabilitySm.h>
#include <valen/linux/EventLoop.h>
#include <valen/linux/KernelNetInfoProvider.h>
#include <valen/linux/LinkControl.h>
#include <valen/linux/PacketEndpoint.h>

using namespace std::chrono_literals;
using namespace Valen;

int main( int argc, char ** argv ) {
   if ( argc != 2 ) {
      std::cerr << "usage: agent DEVICE\n";
      return 2;
   }
   // The platform on Linux: an event loop, packet sockets, and the kernel's devices as entities.
   Linux::EventLoop loop;
   Linux::PacketEndpointProvider endpoints;
   Corvid::rawTxPamProviderIs( &endpoints );
   Linux::KernelNetInfoProvider devices( loop );
   auto const store = Quill::make< Orrery::EntityManager >();
   store->mountProviderIs( Linux::KernelNetInfoProvider::prefix, &devices );

   // The state store: one interface in the default VRF, on DEVICE, with one queued frame.
   Corvid::IntfId const intfId( "Ethernet1" );
   auto const configDir = Quill::make< Config::ConfigDir >();
   auto const globalConfig = Quill::make< Config::GlobalConfig >();
   globalConfig->shutdownDelayMsIs( 500 );
   configDir->globalConfigIs( globalConfig );
   auto const message = Quill::make< Config::Agent::Message >( intfId );
   message->messageEnq( std::string( 6, '\xff' ) + std::string( 6, '\x02' ) + "\x88\xb5goodbye" );
   auto const messageDir = Quill::make< Config::Agent::MessageDir >();
   messageDir->messageIs( intfId, message );
   auto const agentDir = Quill::make< Quill::Dir >();
   agentDir->entryIs( "messages", messageDir );
   auto const agents = Quill::make< Quill::Dir >();
   agents->entryIs( "example", agentDir );
   auto const intfConfigs = Quill::make< Interface::AllIntfConfigDir >();
   auto const intfConfig = intfConfigs->intfConfigIs( intfId );
   intfConfig->adminShutdownDelaySupportedIs( true );
   auto const intfStatuses = Quill::make< Interface::AllIntfStatusDir >();
   intfStatuses->intfStatusIs( intfId )->deviceNameIs( argv[ 1 ] );
   auto const l3Statuses = Quill::make< L3::Intf::StatusDir >();
   l3Statuses->intfStatusIs( intfId )->vrfIs( "default" );
   auto const statusDir = Quill::make< Status::StatusDir >();

   auto const allIntf = allIntfFactory();
   auto const library = runnabilitySmFactory( configDir, agents, intfConfigs, intfStatuses,
                                              Quill::make< Interface::AllIntfStatusLocalDir >(),
                                              l3Statuses, Quill::make< Ip::AllVrfStatusLocal >(),
                                              store, statusDir, allVrfFactory(), allIntf );

   for ( int turns = 0; !statusDir->intfStatusHas( intfId ); ++turns ) {
      if ( turns == 50 ) {
         std::cerr << "no device " << argv[ 1 ] << "\n";
         return 1;
      }
      loop.turn( 100ms );
   }
   std::cout << intfId << " is ready on " << argv[ 1 ] << std::endl;

   intfConfig->adminShutdownDelayedIs( true ); // the operator's request
   auto const status = statusDir->intfStatus( intfId );
   std::cout << "frames sent, shutdown delayed" << std::endl;
   while ( status->delayed() ) {
      loop.turn();
   }
   auto const device = allIntf->intf( intfId )->device();
   Linux::LinkControl().stateIs( Corvid::NamespaceName::defaultNamespace(), device.ifIndex,
                                 device.deviceName, Linux::LinkState::down );
   std::cout << argv[ 1 ] << " is down" << std::endl;
   configDir->globalConfigIs( nullptr ); // disable the delay: the library destroys its objects
}
