#include "valend/shutdown/ObserverList.h"

#include "tests/support/FaultRecorder.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using Steps = std::vector< ShutdownStep >;

ShutdownObserver into( Steps & steps ) {
   return [ & ]( auto step, auto const & ) { steps.push_back( step ); };
}

TEST( ObserverListTest, OneThatJoinsIsToldTheLastStep ) {
   ShutdownRecord record;
   ObserverList list;
   Steps first, second;
   list.join( into( first ), record );
   list.tell( ShutdownStep::sent, record );
   list.lastStepIs( ShutdownStep::delayed );
   list.join( into( second ), record );
   list.tell( ShutdownStep::ended, record );
   EXPECT_THAT( first, ElementsAre( ShutdownStep::sent, ShutdownStep::ended ) );
   EXPECT_THAT( second, ElementsAre( ShutdownStep::delayed, ShutdownStep::ended ) );
}

TEST( ObserverListTest, OneThatThrowsIsAFaultAndTheOthersAreTold ) {
   Valen::Test::FaultRecorder faults;
   ShutdownRecord record;
   ObserverList list;
   Steps steps;
   list.join( []( auto, auto const & ) { throw std::runtime_error( "no" ); }, record );
   list.join( into( steps ), record );
   list.tell( ShutdownStep::sent, record );
   EXPECT_THAT( steps, ElementsAre( ShutdownStep::sent ) );
   EXPECT_EQ( record.why, "an observer failed: no" );
   record.ending = ShutdownRecord::Ending::down;
   list.tell( ShutdownStep::ended, record );
   EXPECT_EQ( record.why, "an observer failed: no" ) << "the record is complete";
   EXPECT_EQ( faults.faults().size(), 2u );
}

} // namespace
} // namespace Valend
