#include "valend/report/StatusModel.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;

// The model, on a clock that stands still between two sweeps: what is seen without it was noticed.
class StatusModelTest : public DaemonFixture {
 protected:
   static Settings::Config only( std::string const & interface ) {
      auto config = twoInterfaces();
      std::erase_if( config.interfaces,
                     [ & ]( auto const & each ) { return each.first != interface; } );
      std::erase_if( config.agents.at( "lldp" ),
                     [ & ]( auto const & each ) { return each.first != interface; } );
      return config;
   }
   // Without the library, and without frames: each look at an interface looks at its device once.
   static Settings::Config many( int count ) {
      Settings::Config config;
      config.shutdownDelayMs = 500;
      for ( int i = 0; i < count; ++i ) {
         auto const number = std::to_string( i );
         config.interfaces[ "Ethernet" + number ] = { "Ethernet" + number, "et" + number, "default",
                                                      true };
      }
      return config;
   }
   void startTwo() {
      start( twoInterfaces() );
      model.neededIs( true );
      settled();
   }
   void startMany( int count ) {
      feeder.apply( many( count ) );
      model.neededIs( true );
      settled();
   }
   // All that was noticed has been looked at; what follows is counted from here.
   void settled() {
      turn();
      looked();
      news = 0;
   }
   // How often devices were looked at since the last call.
   int looked() { return kernel.looks - std::exchange( looks_, kernel.looks ); }

   std::string link( std::string const & interface ) const {
      auto const * const found = model.find( interface );
      return found ? ( *found )[ "link" ] : "unknown";
   }
   // The device is set down, and the kernel reports it, or changes something that is not reported.
   void setDown( std::string const & netNs, std::string const & name, bool reported = true ) {
      kernel.at( netNs, name ).up = false;
      if ( reported ) {
         auto const status = store.entityManager->mounted( "kni/ns/" + netNs + "/status" );
         auto const device = Quill::ptrCast< KernelNetInfo::Status >( status )->interface(
            kernel.at( netNs, name ).ifIndex );
         device->flagsIs( device->flags() + 1 );
      }
   }

   // The names in the answer.
   using Names = std::vector< std::string >;
   Names interfaces( U64 since, std::optional< std::string > const & interface = {} ) const {
      Names names;
      auto const answer = difference( since, interface );
      for ( auto const & each : answer[ "interfaces" ] ) {
         names.push_back( each[ "name" ] );
      }
      return names;
   }
   Names gone( U64 since, std::optional< std::string > const & interface = {} ) const {
      return difference( since, interface )[ "gone" ];
   }
   Json difference( U64 since, std::optional< std::string > const & interface ) const {
      return Json::parse( model.difference( since, interface ) );
   }

   int news = 0;
   StatusReport report{ store, feeder, kernel, controller };
   StatusModel model{ store, feeder, report, clock.scheduler(), work, [ this ] { ++news; } };

 private:
   int looks_ = 0;
};

// --- Looking -------------------------------------------------------------------------------------

TEST_F( StatusModelTest, TheFirstSweepIsMadeInSlices ) {
   feeder.apply( many( 1000 ) );
   settled();
   model.neededIs( true );
   for ( int slice = 0; slice < 4; ++slice ) {
      work.run();
      EXPECT_EQ( looked(), Slices::mostSteps );
      EXPECT_FALSE( model.complete() );
      EXPECT_EQ( news, 0 );
   }
   turn();
   EXPECT_EQ( looked(), 200 );
   EXPECT_TRUE( model.complete() );
   EXPECT_EQ( news, 1 );
   EXPECT_EQ( interfaces( 0 ).size(), 1000u );
}

TEST_F( StatusModelTest, WhatHasChangedIsLookedAtInSlices ) {
   startMany( 1000 );
   for ( auto const & [ name, config ] : feeder.config().interfaces ) {
      model.changed( name );
   }
   work.run();
   EXPECT_EQ( looked(), Slices::mostSteps );
   turn();
   EXPECT_EQ( looked(), 800 );
}

TEST_F( StatusModelTest, ALaterSweepIsSpreadOverThePeriod ) {
   startMany( 1000 );
   clock.advance( StatusModel::period );
   EXPECT_THAT( looked(), AllOf( Ge( 50 ), Le( 60 ) ) );
   clock.advance( 13ms ); // a twentieth
   EXPECT_THAT( looked(), AllOf( Ge( 50 ), Le( 60 ) ) );
   clock.advance( StatusModel::period - 25ms );
   EXPECT_THAT( looked(), AllOf( Ge( 850 ), Le( 1000 ) ) );
   clock.advance( StatusModel::period );
   EXPECT_THAT( looked(), AllOf( Ge( 1000 ), Le( 1100 ) ) );
}

TEST_F( StatusModelTest, WhatHasChangedOftenIsLookedAtOnce ) {
   startTwo();
   model.changed( "Ethernet1" );
   model.changed( "Ethernet2" );
   model.changed( "Ethernet1" );
   turn();
   EXPECT_EQ( looked(), 2 );
   model.changed( "Ethernet1" );
   turn();
   EXPECT_EQ( looked(), 1 ) << "again after that look";
}

TEST_F( StatusModelTest, WhatIsReportedIsSeenBeforeASweep ) {
   startTwo();
   setDown( "ns-red", "et2" );
   turn();
   EXPECT_EQ( link( "Ethernet2" ), "down" );
   EXPECT_EQ( news, 1 );
   EXPECT_EQ( looked(), 1 ) << "the other one has not changed";
   store.statusDir->intfStatus( "Ethernet1" )->delayedIs( true );
   turn();
   EXPECT_EQ( looked(), 1 );
}

TEST_F( StatusModelTest, WhatIsNotReportedIsSeenByASweep ) {
   startTwo();
   setDown( "default", "et1", false );
   turn();
   EXPECT_EQ( link( "Ethernet1" ), "up" );
   clock.advance( StatusModel::period );
   EXPECT_EQ( link( "Ethernet1" ), "down" );
   EXPECT_EQ( news, 1 );
}

// Of an interface that leaves its place, the configuration has nothing before its entities are removed.
TEST_F( StatusModelTest, AnInterfaceThatIsGoneUnnoticedIsRemovedByASweep ) {
   startMany( 2 );
   feeder.begin( std::make_shared< Plan const >( many( 1 ) ) );
   while ( feeder.config().interfaces.contains( "Ethernet1" ) ) {
      feeder.step();
   }
   EXPECT_TRUE( work.empty() );
   clock.advance( StatusModel::period );
   EXPECT_EQ( model.find( "Ethernet1" ), nullptr );
   EXPECT_EQ( news, 1 );
   while ( feeder.step() ) {
   }
}

TEST_F( StatusModelTest, ANamespaceIsFollowedFromTheNextSweep ) {
   start( only( "Ethernet1" ) );
   model.neededIs( true );
   feeder.apply( twoInterfaces() );
   settled();
   clock.advance( StatusModel::period );
   setDown( "ns-red", "et2" );
   turn();
   EXPECT_EQ( link( "Ethernet2" ), "down" );
}

TEST_F( StatusModelTest, AnInterfaceIsLookedAtWhenItsPresentDeviceChanges ) {
   auto config = twoInterfaces();
   start( config );
   kernel.deviceIs( "default", "et9", 9 );
   model.neededIs( true );
   turn();
   config.interfaces.at( "Ethernet1" ).device = "et9";
   feeder.apply( config );
   model.update( "Ethernet1" );
   settled();
   setDown( "default", "et9" );
   turn();
   EXPECT_EQ( link( "Ethernet1" ), "down" );
   looked();
   setDown( "default", "et1" );
   EXPECT_TRUE( work.empty() ) << "of the former device";
   EXPECT_EQ( looked(), 0 );
}

TEST_F( StatusModelTest, ADeviceOfAnInterfaceThatIsGoneIsNotLookedAt ) {
   startTwo();
   auto config = only( "Ethernet2" );
   config.interfaces[ "Ethernet3" ] = { "Ethernet3", "et3", "default", true };
   config.agents.at( "lldp" )[ "Ethernet3" ] = { frame( 'd' ) };
   feeder.apply( config );
   settled();
   setDown( "default", "et1" );
   EXPECT_TRUE( work.empty() );
}

// --- News ----------------------------------------------------------------------------------------

TEST_F( StatusModelTest, WithoutAChangeThereIsNoNews ) {
   startTwo();
   model.changed( "Ethernet1" );
   turn();
   EXPECT_EQ( looked(), 1 );
   clock.advance( 4 * StatusModel::period );
   EXPECT_GT( looked(), 2 );
   EXPECT_EQ( news, 0 );
}

TEST_F( StatusModelTest, ManyChangesAreNewsOnce ) {
   startTwo();
   setDown( "default", "et1" );
   setDown( "ns-red", "et2" );
   turn();
   EXPECT_EQ( news, 1 );
   EXPECT_EQ( interfaces( 2 ), ( Names{ "Ethernet1", "Ethernet2" } ) );
}

TEST_F( StatusModelTest, ThatThereIsNoInterfaceIsNews ) {
   model.neededIs( true );
   EXPECT_FALSE( model.complete() );
   turn();
   EXPECT_TRUE( model.complete() );
   EXPECT_EQ( news, 1 );
   clock.advance( 4 * StatusModel::period );
   EXPECT_EQ( news, 1 );
   EXPECT_EQ( model.difference( 0, {} ), R"({"gone":[],"interfaces":[]})" );
}

// --- What is known -------------------------------------------------------------------------------

TEST_F( StatusModelTest, TheDifferenceHasEachInterfaceThatChangedSinceOnce ) {
   startTwo();
   auto const before = model.last();
   EXPECT_EQ( interfaces( before ), Names() );
   setDown( "default", "et1" );
   turn();
   EXPECT_EQ( interfaces( 0 ), ( Names{ "Ethernet1", "Ethernet2" } ) );
   EXPECT_EQ( interfaces( before ), Names{ "Ethernet1" } );
   EXPECT_EQ( interfaces( model.last() ), Names() );
   EXPECT_EQ( model.last( "Ethernet1" ), model.last() );
   EXPECT_LE( model.last( "Ethernet2" ), before );
   EXPECT_EQ( model.last( "Ethernet3" ), 0u );
}

TEST_F( StatusModelTest, TheDifferenceOfOneInterfaceIsTheInterface ) {
   startTwo();
   EXPECT_EQ( interfaces( 0, "Ethernet2" ), Names{ "Ethernet2" } );
   auto const before = model.last();
   feeder.apply( only( "Ethernet1" ) );
   turn();
   EXPECT_EQ( interfaces( before, "Ethernet1" ), Names{ "Ethernet1" } );
   EXPECT_EQ( gone( before, "Ethernet1" ), Names() );
   EXPECT_EQ( interfaces( before, "Ethernet2" ), Names() );
   EXPECT_EQ( gone( before, "Ethernet2" ), Names{ "Ethernet2" } );
}

TEST_F( StatusModelTest, AnInterfaceThatIsGoneIsToldToThoseWhoKnewIt ) {
   startTwo();
   auto const before = model.last();
   feeder.apply( only( "Ethernet1" ) );
   turn();
   EXPECT_EQ( news, 1 );
   EXPECT_EQ( gone( before ), Names{ "Ethernet2" } );
   EXPECT_EQ( gone( model.last() ), Names() );
   EXPECT_EQ( gone( 0 ), Names() ) << "who is new never knew it";
   EXPECT_EQ( interfaces( 0 ), Names{ "Ethernet1" } );
   EXPECT_EQ( model.last( "Ethernet2" ), model.last() );
   EXPECT_EQ( model.find( "Ethernet2" ), nullptr );
}

TEST_F( StatusModelTest, AnInterfaceThatCameBackIsNotGone ) {
   startTwo();
   auto const before = model.last();
   feeder.apply( only( "Ethernet1" ) );
   turn();
   feeder.apply( twoInterfaces() );
   turn();
   EXPECT_EQ( gone( before ), Names() );
   EXPECT_EQ( interfaces( before ), Names{ "Ethernet2" } );
   EXPECT_EQ( model.last( "Ethernet2" ), model.last() );
   setDown( "ns-red", "et2" );
   turn();
   EXPECT_EQ( link( "Ethernet2" ), "down" ) << "its device is followed again";
}

TEST_F( StatusModelTest, WhatNobodyAsksForIsForgotten ) {
   startTwo();
   auto const before = model.last();
   feeder.apply( only( "Ethernet1" ) );
   turn();
   model.forget( before );
   EXPECT_EQ( gone( before ), Names{ "Ethernet2" } );
   model.forget( model.last() );
   EXPECT_EQ( gone( before ), Names() );
   EXPECT_EQ( model.last( "Ethernet2" ), 0u );
}

TEST_F( StatusModelTest, WhileItIsNotNeededItIsEmptyAndRests ) {
   startTwo();
   auto const before = model.last();
   feeder.apply( only( "Ethernet1" ) );
   turn();
   model.neededIs( false );
   EXPECT_FALSE( model.complete() );
   EXPECT_EQ( model.find( "Ethernet1" ), nullptr );
   EXPECT_EQ( interfaces( 0 ), Names() );
   EXPECT_EQ( gone( before ), Names() );
   settled();
   setDown( "default", "et1" );
   model.changed( "Ethernet1" );
   EXPECT_TRUE( work.empty() );
   clock.advance( 4 * StatusModel::period );
   EXPECT_EQ( looked(), 0 );
   EXPECT_EQ( news, 0 );

   model.neededIs( true );
   turn();
   EXPECT_TRUE( model.complete() );
   EXPECT_EQ( link( "Ethernet1" ), "down" );
   EXPECT_EQ( news, 1 );
}

} // namespace
} // namespace Valend
