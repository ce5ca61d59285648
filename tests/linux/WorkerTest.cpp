#include "linux/Worker.h"

#include "tests/support/FaultRecorder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class WorkerTest : public ::testing::Test {
 protected:
   // Turns the loop until `done()`; fails after ten seconds.
   template < class Done > void turnUntil( Done const & done ) {
      auto const end = std::chrono::steady_clock::now() + 10s;
      while ( !done() ) {
         ASSERT_LT( std::chrono::steady_clock::now(), end );
         loop_.turn( 1s );
      }
   }

   EventLoop loop_;
   Valen::Test::FaultRecorder faults_;
};

TEST_F( WorkerTest, AJobRunsInItsThreadAndItsResultOnTheLoop ) {
   Worker worker( loop_, "test" );
   std::thread::id job;
   std::thread::id result;
   worker.run( [ & ]() -> Worker::Work {
      job = std::this_thread::get_id();
      return [ & ] { result = std::this_thread::get_id(); };
   } );
   turnUntil( [ & ] { return result != std::thread::id(); } );
   EXPECT_EQ( result, std::this_thread::get_id() );
   EXPECT_NE( job, std::this_thread::get_id() );
}

TEST_F( WorkerTest, TheLoopDoesNotWaitForAJob ) {
   std::promise< void > end;
   Worker worker( loop_, "test" );
   bool ended = false;
   worker.run( [ &, future = std::make_shared< std::future< void > >( end.get_future() ) ] {
      future->wait(); // for the loop
      return [ & ] { ended = true; };
   } );
   bool turned = false;
   loop_.post( [ & ] { turned = true; } );
   turnUntil( [ & ] { return turned; } );
   EXPECT_FALSE( ended );
   end.set_value();
   turnUntil( [ & ] { return ended; } );
}

TEST_F( WorkerTest, JobsAndResultsKeepTheirOrder ) {
   Worker worker( loop_, "test" );
   std::vector< int > results;
   for ( int i = 0; i < 100; ++i ) {
      worker.run( [ &, i ] { return [ &, i ] { results.push_back( i ); }; } );
   }
   turnUntil( [ & ] { return results.size() == 100; } );
   EXPECT_TRUE( std::is_sorted( results.begin(), results.end() ) );
}

TEST_F( WorkerTest, WhatAJobThrowsIsAFaultOfTheLoop ) {
   Worker worker( loop_, "test" );
   worker.run( []() -> Worker::Work { throw std::runtime_error( "the disk is on fire" ); } );
   turnUntil( [ & ] { return !faults_.faults().empty(); } );
   EXPECT_THAT( faults_.messages(), ElementsAre( HasSubstr( "the disk is on fire" ) ) );
   bool later = false;
   worker.run( [ & ] { return [ & ] { later = true; }; } );
   turnUntil( [ & ] { return later; } );
}

TEST_F( WorkerTest, QueuedJobsStillRunAtItsEndAndTheirResultsAreDropped ) {
   std::atomic< int > jobs = 0;
   int results = 0;
   {
      Worker worker( loop_, "test" );
      for ( int i = 0; i < 10; ++i ) {
         worker.run( [ & ] {
            ++jobs;
            return [ & ] { ++results; };
         } );
      }
   }
   EXPECT_EQ( jobs, 10 );
   loop_.turn( 0s );
   EXPECT_EQ( results, 0 );
}

TEST_F( WorkerTest, AJobThatDoesNotEndIsLeftBehindAndThoseAfterItAreDropped ) {
   auto const goesOn = std::make_shared< std::promise< void > >();
   auto const begun = std::make_shared< std::promise< void > >();
   auto const ended = std::make_shared< std::promise< void > >();
   auto const later = std::make_shared< std::atomic< bool > >( false );
   {
      Worker worker( loop_, "test", 10ms );
      worker.run( [ goesOn, begun, ended ]() -> Worker::Work {
         begun->set_value();
         goesOn->get_future().wait();
         ended->set_value();
         return [] { ADD_FAILURE() << "the loop takes no result any more"; };
      } );
      worker.run( [ later ]() -> Worker::Work {
         *later = true;
         return nullptr;
      } );
      begun->get_future().wait();
   } // or it hangs
   goesOn->set_value();
   ended->get_future().wait();
   loop_.turn( 50ms );
   EXPECT_FALSE( *later );
}

TEST_F( WorkerTest, JobsThatEndInTimeAreWaitedFor ) {
   std::atomic< int > jobs = 0;
   {
      Worker worker( loop_, "test", 60s );
      for ( int i = 0; i < 10; ++i ) {
         worker.run( [ & ]() -> Worker::Work {
            std::this_thread::sleep_for( 1ms );
            ++jobs;
            return nullptr;
         } );
      }
   }
   EXPECT_EQ( jobs, 10 );
}

TEST_F( WorkerTest, AnInboxTakesWorkOfManyThreads ) {
   Inbox inbox( loop_, "test" );
   int taken = 0;
   std::vector< std::thread > threads;
   for ( int i = 0; i < 4; ++i ) {
      threads.emplace_back( [ & ] {
         for ( int k = 0; k < 1000; ++k ) {
            inbox.put( [ & ] { ++taken; } );
         }
      } );
   }
   turnUntil( [ & ] { return taken == 4000; } );
   for ( auto & thread : threads ) {
      thread.join();
   }
}

} // namespace
} // namespace Valen::Linux
