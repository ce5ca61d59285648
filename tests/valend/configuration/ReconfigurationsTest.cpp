// Random reconfigurations before and during shutdowns: 10 histories of 1,000 each. After every step
// the state is compared with the configuration and the kernel: which interfaces are ready, which
// frames may be sent where, and which links may go down. Half of the configurations are applied in steps, between
// which devices come and go, and shutdowns begin, end and are aborted.
#include "tests/valend/DaemonFixture.h"

#include <random>

namespace Valend::Test {
namespace {

constexpr unsigned interfaceCount = 6;
constexpr unsigned reconfigurations = 1000;

// VALEN_HISTORIES sets another number of histories; each is different.
unsigned histories() {
   auto const * const wanted = std::getenv( "VALEN_HISTORIES" );
   return wanted ? static_cast< unsigned >( std::stoul( wanted ) ) : 10;
}

std::string number( std::string const & name, unsigned i ) {
   return name + std::to_string( i );
}

class ReconfigurationsTest : public DaemonFixture,
                             public ::testing::WithParamInterface< unsigned > {
 protected:
   ReconfigurationsTest() : random_( GetParam() ) {
      for ( auto const * netNs : { "default", "ns1", "ns2", "ns3" } ) {
         netNsIn( netNs );
      }
      config_.shutdownDelayMs = 5;
      config_.vrfs = { { "vrf0", "ns1" }, { "vrf1", "ns2" } };
   }

   // --- The kernel: each namespace has a device of every name ------------------------------------

   void netNsIn( std::string const & netNs ) {
      kernel.netNsIs( netNs, netNs == "default" ? "1:1" : number( "1:", ++lastIdentity_ ) );
      existing_.insert( netNs );
      for ( unsigned i = 0; i < interfaceCount; ++i ) {
         deviceIn( netNs, number( "et", i ) );
      }
   }
   void netNsOut( std::string const & netNs ) {
      for ( unsigned i = 0; i < interfaceCount; ++i ) {
         deviceOut( netNs, number( "et", i ) );
      }
      kernel.netNsDel( netNs );
      existing_.erase( netNs );
   }
   void deviceIn( std::string const & netNs, std::string const & device ) {
      if ( devices_.emplace( std::pair( netNs, device ), lastIndex_ + 1 ).second ) {
         kernel.deviceIs( netNs, device, ++lastIndex_ );
      }
   }
   void deviceOut( std::string const & netNs, std::string const & device ) {
      if ( devices_.erase( { netNs, device } ) ) {
         kernel.deviceDel( netNs, device );
      }
   }

   // --- What can happen --------------------------------------------------------------------------

   unsigned below( unsigned limit ) { return static_cast< unsigned >( random_() % limit ); }
   std::string anyInterface() { return number( "If", below( interfaceCount ) ); }

   void reconfigure() {
      auto next = config_;
      for ( unsigned changes = 1 + below( 3 ); changes; --changes ) {
         change( next );
      }
      config_ = next;
      if ( below( 2 ) ) {
         feeder.apply( next );
         return placesNote();
      }
      feeder.begin( std::make_shared< Plan const >( next ) );
      while ( feeder.step() && !HasFatalFailure() ) {
         placesNote();
         if ( below( 3 ) == 0 ) {
            meanwhile();
         }
      }
      placesNote();
   }
   // Something else that the loop does between two steps.
   void meanwhile() {
      step();
      turn();
      requireFrames();
      if ( !HasFatalFailure() ) {
         requireLinks();
      }
   }
   // A link may go down in any of the places that the interface had since it was to be shut down.
   void placesNote() {
      for ( auto & [ name, places ] : asked_ ) {
         places.insert( placeOf( name ) );
      }
   }

   void change( Settings::Config & next ) {
      switch ( below( 8 ) ) {
      case 0:
         next.shutdownDelayMs =
            below( 6 ) ? std::optional( static_cast< U16 >( below( 8 ) ) ) : std::nullopt;
         break;
      case 1:
         return changeVrf( next );
      case 2:
         return swapDevices( next );
      case 3:
      case 4:
         return changeMessages( next );
      default:
         return changeInterface( next );
      }
   }

   void changeVrf( Settings::Config & next ) {
      auto const vrf = number( "vrf", below( 2 ) );
      if ( below( 3 ) == 0 && next.vrfs.erase( vrf ) ) {
         for ( auto & [ name, interface ] : next.interfaces ) {
            interface.vrf =
               interface.vrf == vrf ? std::string( Settings::defaultVrf ) : interface.vrf;
         }
         return requireUniqueDevices( next );
      }
      auto const netNs = number( "ns", 1 + below( 3 ) );
      bool const taken =
         std::any_of( next.vrfs.begin(), next.vrfs.end(), [ & ]( auto const & other ) {
            return other.first != vrf && other.second == netNs;
         } );
      if ( !taken ) {
         next.vrfs[ vrf ] = netNs;
      }
   }

   void changeInterface( Settings::Config & next ) {
      auto const name = anyInterface();
      if ( below( 8 ) == 0 ) {
         next.interfaces.erase( name );
         for ( auto & [ agent, messages ] : next.agents ) {
            messages.erase( name );
         }
         return;
      }
      auto vrf = number( "vrf", below( 3 ) );
      next.interfaces[ name ] = { name, number( "et", below( interfaceCount ) ),
                                  next.vrfs.contains( vrf ) ? vrf : Settings::defaultVrf,
                                  below( 4 ) != 0 };
      if ( below( 2 ) && !next.hasFrames( name ) ) {
         next.agents[ number( "agent", below( 3 ) ) ][ name ] = anyFrames( name );
      }
      requireUniqueDevices( next );
   }

   void swapDevices( Settings::Config & next ) {
      auto const a = next.interfaces.find( anyInterface() );
      auto const b = next.interfaces.find( anyInterface() );
      if ( a != next.interfaces.end() && b != next.interfaces.end() ) {
         std::swap( a->second.device, b->second.device );
         requireUniqueDevices( next );
      }
   }

   // Of interfaces that share a device the first keeps it, the others are removed.
   static void requireUniqueDevices( Settings::Config & next ) {
      std::set< std::pair< std::string, std::string > > users;
      for ( auto interface = next.interfaces.begin(); interface != next.interfaces.end(); ) {
         auto const & [ name, config ] = *interface;
         if ( users.emplace( config.vrf, config.device ).second ) {
            ++interface;
            continue;
         }
         for ( auto & [ agent, messages ] : next.agents ) {
            messages.erase( name );
         }
         interface = next.interfaces.erase( interface );
      }
   }

   void changeMessages( Settings::Config & next ) {
      auto const agent = number( "agent", below( 3 ) );
      auto const name = anyInterface();
      if ( below( 20 ) == 0 ) {
         next.agents.erase( agent );
      } else if ( !next.interfaces.contains( name ) || below( 5 ) == 0 ) {
         next.agents[ agent ].erase( name );
      } else {
         next.agents[ agent ][ name ] = anyFrames( name );
      }
   }

   Settings::Frames anyFrames( std::string const & name ) {
      Settings::FrameList frames;
      for ( unsigned count = 1 + below( 3 ); count; --count ) {
         frames.push_back( std::string( 13, 'h' ) + name + "/" + std::to_string( random_() ) );
      }
      return frames;
   }

   void changeKernel() {
      auto const netNs = number( "ns", 1 + below( 3 ) );
      switch ( below( 4 ) ) {
      case 0:
         if ( existing_.contains( netNs ) ) {
            netNsOut( netNs );
         } else {
            netNsIn( netNs );
         }
         feeder.namespaceChanged( netNs );
         break;
      case 1: {
         auto const device = number( "et", below( interfaceCount ) );
         auto const place = below( 2 ) ? std::string( "default" ) : netNs;
         if ( devices_.contains( { place, device } ) ) {
            deviceOut( place, device );
         } else if ( existing_.contains( place ) ) {
            deviceIn( place, device );
         }
         break;
      }
      default: // links that were shut down come up again, so that there is more to do
         for ( auto const & [ place, index ] : devices_ ) {
            kernel.at( place.first, place.second ).up = true;
         }
      }
   }

   void ask() {
      auto const name = anyInterface();
      try {
         if ( below( 3 ) ) {
            if ( devices_.contains( placeOf( name ) ) ) { // a link that is down would send nothing
               kernel.at( placeOf( name ).first, placeOf( name ).second ).up = true;
            }
            bool const again = controller.running( name ); // then it may have been in other places
            controller.shutdown( name, { "root" }, {} );
            if ( !again ) {
               asked_[ name ].clear();
            }
            asked_[ name ].insert( placeOf( name ) );
         } else {
            enable( name );
            asked_.erase( name );
         }
      } catch ( Refusal const & ) { // not configured, or no device
      }
   }

   void step() {
      switch ( below( 8 ) ) {
      case 0:
         return changeKernel();
      case 1:
      case 2:
      case 3:
      case 4:
         return ask();
      default:
         return advance( std::chrono::milliseconds( below( 6 ) ) );
      }
   }

   // --- The rules --------------------------------------------------------------------------------

   using Place = std::pair< std::string, std::string >; // namespace and device
   Place placeOf( std::string const & name ) const {
      auto const & config = feeder.config(); // in the middle of a reconfiguration, too
      auto const found = config.interfaces.find( name );
      return found == config.interfaces.end()
                ? Place()
                : Place( config.netNsOf( found->second.vrf ), found->second.device );
   }

   bool shouldBeReady( std::string const & name ) const {
      auto const found = config_.interfaces.find( name );
      return found != config_.interfaces.end() && config_.shutdownDelayMs &&
             found->second.shutdownDelay && hasFrames( name ) &&
             devices_.contains( placeOf( name ) );
   }
   bool hasFrames( std::string const & name ) const { return config_.hasFrames( name ); }

   void requireReadiness() const {
      for ( unsigned i = 0; i < interfaceCount; ++i ) {
         auto const name = number( "If", i );
         ASSERT_EQ( ready( name ), shouldBeReady( name ) ) << name;
      }
   }

   // A frame is sent out of the device of its interface, and only while that interface is being shut
   // down.
   void requireFrames() {
      for ( ; framesSeen_ < sent.packets.size(); ++framesSeen_ ) {
         auto const & packet = sent.packets[ framesSeen_ ];
         auto const text = packet.bytes.substr( 13 );
         auto const name = text.substr( 0, text.find( '/' ) );
         ASSERT_TRUE( asked_.contains( name ) ) << name << " sent frames without a request";
         auto const device = devices_.find( placeOf( name ) );
         ASSERT_TRUE( device != devices_.end() ) << name;
         ASSERT_EQ( packet.netNs, placeOf( name ).first );
         ASSERT_EQ( packet.ifIndex, device->second ) << name << " sent out of another device";
      }
   }

   // A link goes down only by request, and never that of another interface.
   void requireLinks() {
      for ( ; actionsSeen_ < kernel.actions.size(); ++actionsSeen_ ) {
         auto const & action = kernel.actions[ actionsSeen_ ];
         if ( !action.starts_with( "down " ) ) {
            continue;
         }
         auto const isIts = [ & ]( Place const & place ) {
            return action == "down " + place.first + "/" + place.second;
         };
         auto const & interfaces = feeder.config().interfaces;
         auto const owner =
            std::find_if( interfaces.begin(), interfaces.end(),
                          [ & ]( auto const & each ) { return isIts( placeOf( each.first ) ); } );
         if ( owner != interfaces.end() ) {
            ASSERT_TRUE( asked_.contains( owner->first ) )
               << action << " of " << owner->first << " without a request";
         } else {
            auto const asked =
               std::find_if( asked_.begin(), asked_.end(), [ & ]( auto const & each ) {
                  return std::any_of( each.second.begin(), each.second.end(), isIts );
               } );
            ASSERT_TRUE( asked != asked_.end() ) << action << " without a request";
         }
      }
   }

   void requireAll() {
      requireReadiness();
      if ( !HasFatalFailure() ) {
         requireFrames();
      }
      if ( !HasFatalFailure() ) {
         requireLinks();
      }
   }

   // Every requested shutdown ends, and links that were not moved meanwhile are down.
   void settle() {
      for ( auto const & [ place, index ] : devices_ ) {
         kernel.at( place.first, place.second ).up = true;
      }
      for ( auto const & [ name, places ] : std::exchange( asked_, {} ) ) {
         try {
            enable( name );
         } catch ( Refusal const & ) {
         }
      }
      turn();
      for ( auto const & [ name, interface ] : config_.interfaces ) {
         if ( devices_.contains( placeOf( name ) ) ) {
            controller.shutdown( name, { "root" }, {} );
            asked_[ name ] = { placeOf( name ) };
         }
      }
      advance( ShutdownHold::margin + 20ms );
      requireAll();
      for ( auto const & [ name, places ] : asked_ ) {
         auto const [ netNs, device ] = placeOf( name );
         ASSERT_FALSE( controller.running( name ) ) << name;
         ASSERT_FALSE( kernel.at( netNs, device ).up ) << name;
      }
   }

   std::mt19937 random_;
   Settings::Config config_;
   std::set< std::string > existing_; // namespaces
   std::map< Place, U32 > devices_;   // their indexes
   // Interfaces to be shut down and not enabled since, each with all places that it had meanwhile.
   std::map< std::string, std::set< Place > > asked_;
   std::size_t framesSeen_ = 0;
   std::size_t actionsSeen_ = 0;
   unsigned lastIdentity_ = 1;
   U32 lastIndex_ = 0;
};

TEST_P( ReconfigurationsTest, FramesAndLinksAreAlwaysThoseOfTheConfiguration ) {
   libraryStart();
   for ( unsigned i = 1; i <= reconfigurations && !HasFatalFailure(); ++i ) {
      SCOPED_TRACE( "reconfiguration " + std::to_string( i ) );
      reconfigure();
      turn();
      requireAll();
      for ( unsigned steps = below( 4 ); steps && !HasFatalFailure(); --steps ) {
         step();
         turn();
         requireAll();
      }
      if ( i % 50 == 0 && !HasFatalFailure() ) {
         settle();
      }
   }
   EXPECT_GT( controller.history().size(), 100u ) << "the histories test too little";
   EXPECT_GT( sent.packets.size(), 100u ) << "the histories test too little";
   EXPECT_EQ( faults.count(), 0u );
   feeder.apply( Settings::Config() );
   turn();
   libraryStop();
}

// --- An interface that moves during its shutdown - -----------------------------------------------

class MovedInterfaceTest : public DaemonFixture {
 protected:
   MovedInterfaceTest() {
      start( twoInterfaces() );
      kernel.deviceIs( "default", "et9", 9 );
      controller.shutdown( "Ethernet1", { "root" }, {} );
      turn();
      EXPECT_TRUE( delayed( "Ethernet1" ) );
   }
   // Applies `config` in the middle of the delay, and waits for its end.
   void reconfigure( Settings::Config const & config ) {
      feeder.apply( config );
      advance( 2000ms );
      EXPECT_FALSE( controller.running( "Ethernet1" ) );
   }
   ShutdownRecord const & last() const { return controller.history().back(); }
};

TEST_F( MovedInterfaceTest, TheDeviceThatTheInterfaceHasAtTheEndGoesDown ) {
   auto config = twoInterfaces();
   config.interfaces[ "Ethernet1" ].device = "et9";
   config.interfaces[ "Ethernet3" ] = { "Ethernet3", "et1", "default", true };
   reconfigure( config );
   EXPECT_THAT( kernel.actions, ::testing::ElementsAre( "down default/et9" ) )
      << "et1 belongs to another interface now";
}

TEST_F( MovedInterfaceTest, ADeviceThatAnotherInterfaceTookOverIsLeftAlone ) {
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet1" );
   config.agents[ "lldp" ].erase( "Ethernet1" );
   config.interfaces[ "Ethernet3" ] = { "Ethernet3", "et1", "default", true };
   reconfigure( config );
   EXPECT_THAT( kernel.actions, ::testing::IsEmpty() );
   EXPECT_EQ( last().ending, ShutdownRecord::Ending::noDevice );
   EXPECT_THAT( last().why, ::testing::HasSubstr( "interface removed from the configuration, and "
                                                  "its device belongs to another interface" ) );
}

INSTANTIATE_TEST_SUITE_P( Histories, ReconfigurationsTest,
                          ::testing::Range( 1u, histories() + 1 ) );

} // namespace
} // namespace Valend::Test
