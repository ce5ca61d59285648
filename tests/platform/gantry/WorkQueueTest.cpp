#include "platform/gantry/WorkQueue.h"

#include "tests/support/FaultRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

namespace Gantry {
namespace {

using ::testing::ElementsAre;

class WorkQueueTest : public ::testing::Test {
 protected:
   auto work( int number ) {
      return [ this, number ] { ran.push_back( number ); };
   }

   WorkQueue queue;
   std::vector< int > ran;
};

TEST_F( WorkQueueTest, WorkRunsInTheOrderOfPosting ) {
   queue.post( work( 1 ) );
   queue.post( work( 2 ) );
   EXPECT_FALSE( queue.empty() );
   queue.run();
   EXPECT_THAT( ran, ElementsAre( 1, 2 ) );
   EXPECT_TRUE( queue.empty() );
}

TEST_F( WorkQueueTest, WhatIsPostedMeanwhileWaitsForTheNextRun ) {
   queue.post( [ & ] { queue.post( work( 2 ) ); } );
   queue.run();
   EXPECT_THAT( ran, ElementsAre() );
   queue.run();
   EXPECT_THAT( ran, ElementsAre( 2 ) );
}

TEST_F( WorkQueueTest, PostedWorkIsDroppedWithItsOwner ) {
   std::optional< PostedWork > owner( std::in_place, queue, "owner" );
   owner->post( work( 1 ) );
   queue.post( work( 2 ) );
   owner.reset();
   queue.run();
   EXPECT_THAT( ran, ElementsAre( 2 ) );
}

TEST_F( WorkQueueTest, WorkMayDestroyItsOwnerAndDropTheRestOfItsWork ) {
   std::optional< PostedWork > owner( std::in_place, queue, "owner" );
   owner->post( [ & ] { owner.reset(); } );
   owner->post( work( 2 ) );
   queue.run();
   EXPECT_THAT( ran, ElementsAre() );
   EXPECT_FALSE( owner );
}

TEST_F( WorkQueueTest, AFaultIsReportedAndTheRestIsStillRun ) {
   Valen::Test::FaultRecorder faults;
   PostedWork owner( queue, "owner" );
   owner.post( [] { throw std::runtime_error( "no luck" ); } );
   queue.post( [] { throw std::runtime_error( "nor here" ); } );
   queue.post( work( 3 ) );
   queue.run();
   EXPECT_THAT( ran, ElementsAre( 3 ) );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in WorkQueue owner: no luck",
                                                "fault in WorkQueue: nor here" ) );
}

} // namespace
} // namespace Gantry
