#include "valend/report/ReadinessLoss.h"

#include "tests/valend/DaemonFixture.h"

namespace Valend {
namespace {

using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReadinessLossTest : public DaemonFixture {
 protected:
   void SetUp() override { start( twoInterfaces() ); }

   // Applies `config` and asks what was lost.
   void reload( Settings::Config const & config ) {
      auto const before = ready();
      feeder.apply( config );
      loss.reportSince( before, [ this ]( auto const & lost ) {
         ++answers;
         texts.clear();
         for ( auto const & [ interface, why ] : lost ) {
            texts.push_back( interface + ": " + why );
         }
      } );
      turn();
   }
   std::vector< std::string > ready() const {
      std::vector< std::string > names;
      auto const step = loss.readyInto( names );
      while ( step() ) {
      }
      return names;
   }

   StatusReport report{ store, feeder, kernel, controller };
   ReadinessLoss loss{ feeder, report, clock.scheduler(), work };
   int answers = 0;
   std::vector< std::string > texts;
};

TEST_F( ReadinessLossTest, AReloadThatLosesNothingIsAnsweredAtOnce ) {
   EXPECT_THAT( ready(), ElementsAre( "Ethernet1", "Ethernet2" ) );
   auto config = twoInterfaces();
   config.shutdownDelayMs = 700;
   reload( config );
   EXPECT_EQ( answers, 1 );
   EXPECT_THAT( texts, IsEmpty() );
}

TEST_F( ReadinessLossTest, EachLossIsNamedWithItsReason ) {
   auto config = twoInterfaces();
   config.agents.at( "lldp" ).erase( "Ethernet1" );
   config.interfaces.at( "Ethernet2" ).shutdownDelay = false;
   reload( config );
   EXPECT_EQ( answers, 0 ) << "they could be ready again in a moment";
   advance( ReadinessLoss::settle );
   EXPECT_EQ( answers, 1 );
   EXPECT_THAT( texts, ElementsAre( "Ethernet1: no frames",
                                    "Ethernet2: delay disabled for this interface" ) );
   advance( 1s );
   EXPECT_EQ( answers, 1 );

   reload( twoInterfaces() );
   EXPECT_EQ( answers, 2 );
   EXPECT_THAT( texts, IsEmpty() );
}

TEST_F( ReadinessLossTest, AnInterfaceThatIsRemovedIsNotALoss ) {
   auto config = twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents.at( "lldp" ).erase( "Ethernet2" );
   reload( config );
   EXPECT_EQ( answers, 1 );
   EXPECT_THAT( texts, IsEmpty() );
}

TEST_F( ReadinessLossTest, AnInterfaceThatIsReadyAgainInTimeIsNotALoss ) {
   auto config = twoInterfaces();
   config.interfaces.at( "Ethernet1" ).device = "et9";
   reload( config );
   advance( 100ms );
   EXPECT_EQ( answers, 0 );
   kernel.deviceIs( "default", "et9", 9 );
   advance( ReadinessLoss::period );
   EXPECT_EQ( answers, 1 );
   EXPECT_THAT( texts, IsEmpty() );
}

TEST_F( ReadinessLossTest, AnInterfaceThatWasNotReadyCannotLoseIt ) {
   kernel.deviceDel( "default", "et1" );
   auto config = twoInterfaces();
   config.agents.at( "lldp" ).erase( "Ethernet1" );
   reload( config );
   EXPECT_EQ( answers, 1 );
   EXPECT_THAT( texts, IsEmpty() );
}

TEST_F( ReadinessLossTest, TwoReloadsAreAnsweredEach ) {
   auto config = twoInterfaces();
   config.agents.clear();
   reload( config );
   advance( 200ms );
   reload( config );
   EXPECT_EQ( answers, 1 ) << "nothing was ready before the second";
   EXPECT_THAT( texts, IsEmpty() );
   advance( ReadinessLoss::settle );
   EXPECT_EQ( answers, 2 );
   EXPECT_EQ( texts.size(), 2u );
}

} // namespace
} // namespace Valend
