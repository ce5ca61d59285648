#include "linux/EventLoop.h"

#include "platform/gantry/Timer.h"
#include "tests/support/FaultRecorder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <thread>
#include <unistd.h>

namespace {

U64 timerSystemCalls = 0;
int timerError = 0; // the call fails with it

} // namespace

// Replaces the function of the C library, to count the calls that reach the kernel, and to let them fail.
extern "C" int timerfd_settime( int fd, int flags, itimerspec const * value,
                                itimerspec * old ) noexcept {
   ++timerSystemCalls;
   if ( timerError ) {
      errno = timerError;
      return -1;
   }
   return static_cast< int >( ::syscall( SYS_timerfd_settime, fd, flags, value, old ) );
}

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

// Two connected descriptors. Writing to one makes the other ready.
struct Pipe {
   Pipe() {
      int ends[ 2 ];
      if ( ::socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends ) < 0 ) {
         throwErrno( "socketpair", errno );
      }
      near = Fd( ends[ 0 ] );
      far = Fd( ends[ 1 ] );
   }
   void poke() { EXPECT_EQ( ::write( far.get(), "x", 1 ), 1 ); }
   void drain() {
      char byte;
      while ( ::read( near.get(), &byte, 1 ) == 1 ) {
      }
   }
   Fd near;
   Fd far;
};

class EventLoopTest : public ::testing::Test {
 protected:
   void watch(
      Pipe & pipe, char const * name, EventLoop::Work work = [] {} ) {
      loop_.descriptorIs( pipe.near.get(), EPOLLIN, name, [ this, &pipe, name, work ]( U32 ) {
         pipe.drain();
         told_.push_back( name );
         work();
      } );
   }

   EventLoop loop_;
   std::vector< std::string > told_;
};

TEST_F( EventLoopTest, AReadyDescriptorIsCalled ) {
   Pipe pipe;
   watch( pipe, "a" );
   loop_.turn( 0ms );
   EXPECT_THAT( told_, ElementsAre() );
   pipe.poke();
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "a" ) );
}

TEST_F( EventLoopTest, TheCallbackGetsTheEvents ) {
   Pipe pipe;
   U32 seen = 0;
   loop_.descriptorIs( pipe.near.get(), EPOLLIN | EPOLLOUT, "a",
                       [ & ]( U32 events ) { seen = events; } );
   loop_.turn( 1s );
   EXPECT_EQ( seen, U32{ EPOLLOUT } );
   pipe.far.close();
   loop_.turn( 1s );
   EXPECT_TRUE( seen & EPOLLHUP );
}

TEST_F( EventLoopTest, AChangedDescriptorUsesTheNewCallbackAndEvents ) {
   Pipe pipe;
   watch( pipe, "old" );
   watch( pipe, "new" );
   pipe.poke();
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "new" ) );
   loop_.descriptorIs( pipe.near.get(), 0, "deaf", [ & ]( U32 ) { told_.push_back( "deaf" ); } );
   pipe.poke();
   loop_.turn( 0ms );
   EXPECT_THAT( told_, ElementsAre( "new" ) );
   EXPECT_EQ( loop_.descriptors(), 2u ); // includes the loop's own timer
}

TEST_F( EventLoopTest, ARemovedDescriptorIsNotCalled ) {
   Pipe pipe;
   watch( pipe, "a" );
   pipe.poke();
   loop_.descriptorDel( pipe.near.get() );
   loop_.descriptorDel( pipe.near.get() ); // no effect
   loop_.turn( 0ms );
   EXPECT_THAT( told_, ElementsAre() );
}

TEST_F( EventLoopTest, ACallbackMayRemoveItself ) {
   Pipe pipe;
   watch( pipe, "a", [ & ] { loop_.descriptorDel( pipe.near.get() ); } );
   pipe.poke();
   loop_.turn( 1s );
   pipe.poke();
   loop_.turn( 0ms );
   EXPECT_THAT( told_, ElementsAre( "a" ) );
}

TEST_F( EventLoopTest, ADescriptorRemovedBeforeItsTurnIsNotCalled ) {
   Pipe a;
   Pipe b;
   auto const removeBoth = [ & ] {
      loop_.descriptorDel( a.near.get() );
      loop_.descriptorDel( b.near.get() );
   };
   watch( a, "one", removeBoth );
   watch( b, "one", removeBoth );
   a.poke();
   b.poke();
   loop_.turn( 1s );
   loop_.turn( 0ms );
   EXPECT_THAT( told_, ElementsAre( "one" ) ); // the other one was removed
}

// The kernel reuses the number of a closed descriptor at once; the event is the old descriptor's.
TEST_F( EventLoopTest, AReusedNumberDoesNotGetTheOldEvent ) {
   Pipe a;
   Pipe b;
   Pipe fresh;
   auto const replaceOther = [ & ]( Pipe & other ) {
      auto const number = other.near.get();
      loop_.descriptorDel( number );
      other.near.close();
      ASSERT_EQ( ::dup2( fresh.near.get(), number ), number );
      other.near = Fd( number );
      loop_.descriptorIs( number, EPOLLIN, "fresh", [ & ]( U32 ) { told_.push_back( "fresh" ); } );
   };
   watch( a, "first", [ & ] { replaceOther( b ); } );
   watch( b, "first", [ & ] { replaceOther( a ); } );
   a.poke();
   b.poke();
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "first" ) );
}

TEST_F( EventLoopTest, ACallbackMayAddDescriptors ) {
   Pipe a;
   Pipe b;
   watch( a, "a", [ & ] { watch( b, "b" ); } );
   a.poke();
   b.poke();
   loop_.turn( 1s );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "a", "b" ) );
}

TEST_F( EventLoopTest, AFaultInACallbackIsReportedAndTheLoopContinues ) {
   Valen::Test::FaultRecorder faults;
   Pipe pipe;
   watch( pipe, "bad one", [] { throw std::runtime_error( "no luck" ); } );
   pipe.poke();
   loop_.post( [] { throw std::runtime_error( "later" ); } );
   loop_.post( [ & ] { told_.push_back( "posted" ); } );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "bad one", "posted" ) );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in EventLoop on descriptor bad one: no luck",
                                                "fault in WorkQueue: later" ) );
}

TEST_F( EventLoopTest, AnInvalidDescriptorIsAnError ) {
   try {
      loop_.descriptorIs( 9999, EPOLLIN, "x", []( U32 ) {} );
      FAIL() << "accepted";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_STREQ( e.what(), "epoll_ctl on descriptor 9999: Bad file descriptor" );
      EXPECT_EQ( e.number(), EBADF );
   }
   EXPECT_EQ( loop_.descriptors(), 1u );
}

// --- Deferred work -------------------------------------------------------------------------------

TEST_F( EventLoopTest, PostedWorkRunsAtTheEndOfTheTurn ) {
   Pipe a;
   Pipe b;
   auto const post = [ & ] { loop_.post( [ & ] { told_.push_back( "posted" ); } ); };
   watch( a, "ready", post );
   watch( b, "ready", post );
   a.poke();
   b.poke();
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "ready", "ready", "posted", "posted" ) );
}

TEST_F( EventLoopTest, WorkThatPostedWorkPostsRunsInTheNextTurnAndTimersInBetween ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   loop_.post( [ & ] {
      told_.push_back( "one" );
      timer.start( 0ms );
      loop_.post( [ & ] { told_.push_back( "two" ); } );
   } );
   loop_.post( [ & ] { told_.push_back( "posted with one" ); } );
   loop_.turn(); // does not wait, since work is posted
   EXPECT_THAT( told_, ElementsAre( "one", "timer", "posted with one" ) );
   loop_.turn();
   EXPECT_THAT( told_, ElementsAre( "one", "timer", "posted with one", "two" ) );
}

TEST_F( EventLoopTest, RunTurnsUntilStop ) {
   int turns = 0;
   EventLoop::Work again = [ & ] {
      if ( ++turns == 3 ) {
         loop_.stop();
      } else {
         loop_.post( again );
      }
   };
   loop_.post( again );
   loop_.run();
   EXPECT_EQ( turns, 3 );
   turns = 2;
   loop_.post( again );
   loop_.run(); // run() works again
   EXPECT_EQ( turns, 3 );
}

// --- Timers --------------------------------------------------------------------------------------

TEST_F( EventLoopTest, TimerRunsOnceWhenItIsDue ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   auto const begin = std::chrono::steady_clock::now();
   timer.start( 20ms );
   EXPECT_TRUE( timer.running() );
   while ( timer.running() ) {
      loop_.turn();
   }
   EXPECT_GE( std::chrono::steady_clock::now() - begin, 20ms );
   EXPECT_THAT( told_, ElementsAre( "timer" ) );
   loop_.turn( 5ms );
   EXPECT_THAT( told_, ElementsAre( "timer" ) );
}

TEST_F( EventLoopTest, StoppedTimerDoesNotRun ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   timer.start( 5ms );
   timer.stop();
   loop_.turn( 20ms );
   EXPECT_THAT( told_, ElementsAre() );
}

TEST_F( EventLoopTest, TimerMayDestroyItself ) {
   std::optional< Gantry::Timer > timer;
   timer.emplace( loop_.scheduler(), "timer", [ & ] {
      timer.reset();
      told_.push_back( "gone" );
   } );
   timer->start( 0ms );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "gone" ) );
}

TEST_F( EventLoopTest, FaultOfATimerIsReported ) {
   Valen::Test::FaultRecorder faults;
   Gantry::Timer timer( loop_.scheduler(), "my timer",
                        [] { throw std::runtime_error( "no luck" ); } );
   timer.start( 0ms );
   loop_.turn( 1s );
   EXPECT_THAT( faults.messages(), ElementsAre( "fault in Timer my timer: no luck" ) );
}

TEST_F( EventLoopTest, ADueTimerWaitsForOneCallbackOnly ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   Pipe a;
   Pipe b;
   for ( auto * const pipe : { &a, &b } ) {
      watch( *pipe, "ready", [ & ] { timer.start( 0ms ); } );
      pipe->poke();
   }
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "ready", "timer", "ready", "timer" ) );
}

TEST_F( EventLoopTest, WhatATimerPostsDoesNotWaitForAllThatAreDueAtTheSameMoment ) {
   std::vector< std::unique_ptr< Gantry::Timer > > timers;
   for ( int i = 0; i < 100; ++i ) {
      timers.push_back( std::make_unique< Gantry::Timer >( loop_.scheduler(), "timer", [ & ] {
         told_.push_back( "timer" );
         loop_.post( [ & ] { told_.push_back( "posted" ); } );
      } ) );
      timers.back()->start( 1ms );
   }
   while ( told_.size() < 200 ) {
      loop_.turn( 1s );
   }
   auto const posted = std::find( told_.begin(), told_.end(), "posted" );
   EXPECT_LT( std::count( told_.begin(), posted, "timer" ), 50 );
}

TEST_F( EventLoopTest, AllTimersThatAreDueRunInTheTurn ) {
   std::vector< std::unique_ptr< Gantry::Timer > > timers;
   for ( int i = 0; i < 100; ++i ) {
      timers.push_back( std::make_unique< Gantry::Timer >(
         loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } ) );
      timers.back()->start( 1ms );
   }
   Pipe pipe;
   pipe.poke();
   loop_.descriptorIs( pipe.near.get(), EPOLLIN, "busy",
                       [ & ]( U32 ) { told_.push_back( "busy" ); } );
   std::this_thread::sleep_for( 2ms );
   loop_.turn( 1s );
   EXPECT_EQ( std::count( told_.begin(), told_.end(), "timer" ), 100 );
   EXPECT_LT( told_.size(), 105u );
}

// The process was stopped, say: what came in meanwhile may have come before the timer was due.
TEST_F( EventLoopTest, ALateTimerRunsAfterWhatWaits ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   Pipe first;
   Pipe listener;
   Pipe connection;
   watch( first, "first" ); // after it, the timer is seen to be late
   watch( listener, "connected", [ & ] { watch( connection, "called" ); } );
   timer.start( 1ms );
   for ( auto * const pipe : { &first, &listener, &connection } ) {
      pipe->poke();
   }
   std::this_thread::sleep_for( 50ms );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "first", "connected", "called", "timer" ) );
}

TEST_F( EventLoopTest, ALateTimerRunsAfterAllThatWaitsHoweverManyThatAre ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   std::vector< Pipe > pipes( 200 );
   for ( auto & pipe : pipes ) {
      watch( pipe, "ready" );
      pipe.poke();
   }
   timer.start( 1ms );
   std::this_thread::sleep_for( 50ms );
   loop_.turn( 1s );
   ASSERT_EQ( told_.size(), 201u );
   EXPECT_EQ( told_.back(), "timer" );
}

TEST_F( EventLoopTest, ALateTimerDoesNotWaitForADescriptorThatIsAlwaysReady ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   Pipe pipe;
   pipe.poke();
   loop_.descriptorIs( pipe.near.get(), EPOLLIN, "busy",
                       [ & ]( U32 ) { told_.push_back( "busy" ); } );
   timer.start( 1ms );
   std::this_thread::sleep_for( 50ms );
   loop_.turn( 1s );
   EXPECT_EQ( told_.back(), "timer" );
   EXPECT_LT( told_.size(), 5u );
}

TEST_F( EventLoopTest, ALateTimerDoesNotWaitForWhatCanOnlyBeWritten ) {
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   Pipe first;
   Pipe writable;
   watch( first, "first" );
   first.poke();
   loop_.descriptorIs( writable.near.get(), EPOLLOUT, "writable",
                       [ & ]( U32 ) { told_.push_back( "writable" ); } );
   timer.start( 1ms );
   std::this_thread::sleep_for( 50ms );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "first", "timer" ) ) << "the rest is for the next turn";
}

TEST_F( EventLoopTest, KernelTimerIsSetOncePerTurnWhateverManyTimersDo ) {
   std::vector< std::unique_ptr< Gantry::Timer > > timers;
   for ( int i = 0; i < 500; ++i ) {
      timers.push_back( std::make_unique< Gantry::Timer >( loop_.scheduler(), "timer", [ &, i ] {
         told_.push_back( "timer" );
         timers[ static_cast< std::size_t >( i ) ]->start( 1h );
      } ) );
      timers.back()->start( std::chrono::microseconds( 10 * ( i % 100 ) ) );
   }
   auto const callsBefore = timerSystemCalls;
   auto const turnsBefore = loop_.turns();
   while ( told_.size() < 500 ) {
      auto const calls = timerSystemCalls;
      loop_.turn();
      ASSERT_LE( timerSystemCalls, calls + 1 );
   }
   EXPECT_GT( timerSystemCalls, callsBefore );
   EXPECT_LE( timerSystemCalls - callsBefore, loop_.turns() - turnsBefore );
   EXPECT_EQ( loop_.timerSettings(), timerSystemCalls - callsBefore );
}

TEST_F( EventLoopTest, KernelTimerIsLeftAloneWhileTheNextDeadlineStays ) {
   Gantry::Timer first( loop_.scheduler(), "first", [] {} );
   Gantry::Timer later( loop_.scheduler(), "later", [] {} );
   first.start( 1h );
   loop_.turn( 0ms );
   auto const calls = timerSystemCalls;
   for ( int i = 0; i < 10; ++i ) {
      later.start( 2h );
      loop_.turn( 0ms );
   }
   EXPECT_EQ( timerSystemCalls, calls );
   first.stop();
   loop_.turn( 0ms );
   EXPECT_EQ( timerSystemCalls, calls + 1 );
}

TEST_F( EventLoopTest, TimersRunInTimeWhenTheKernelsTimerCannotBeSet ) {
   Valen::Test::FaultRecorder faults;
   Pipe pipe;
   watch( pipe, "ready" );
   Gantry::Timer late( loop_.scheduler(), "late", [ & ] { told_.push_back( "late" ); } );
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   late.start( 1h );
   loop_.turn( 0ms ); // the kernel's timer is set to that
   timerError = ENOMEM;
   auto const begin = std::chrono::steady_clock::now();
   timer.start( 20ms );
   pipe.poke();
   while ( timer.running() && std::chrono::steady_clock::now() < begin + 10s ) {
      loop_.turn( 5s );
   }
   auto const after = std::chrono::steady_clock::now() - begin;
   timerError = 0;
   EXPECT_THAT( told_, ElementsAre( "ready", "timer" ) );
   EXPECT_GE( after, 20ms );
   EXPECT_LT( after, 4s );
   EXPECT_LT( loop_.turns(), 20u ) << "it waited for the timer instead of spinning";
   EXPECT_THAT(
      faults.messages(),
      ElementsAre( "fault in EventLoop on timer: timerfd_settime: Cannot allocate memory" ) );
}

TEST_F( EventLoopTest, AKernelsTimerThatCanBeSetAgainIsUsedAgain ) {
   Valen::Test::FaultRecorder faults;
   Gantry::Timer timer( loop_.scheduler(), "timer", [ & ] { told_.push_back( "timer" ); } );
   timer.start( 1h );
   for ( auto const error : { ENOMEM, ENOMEM, 0, EPERM, 0 } ) {
      timerError = error;
      timer.start( 1h );
      loop_.turn( 0ms );
   }
   EXPECT_EQ( faults.messages().size(), 2u ) << "once for each time that it stopped working";
   timer.start( 5ms );
   loop_.turn();
   EXPECT_THAT( told_, ElementsAre( "timer" ) );
}

// --- Signals -------------------------------------------------------------------------------------

TEST_F( EventLoopTest, TheLoopHandlesSignals ) {
   loop_.signalIs( SIGUSR1, [ & ] { told_.push_back( "usr1" ); } );
   loop_.signalIs( SIGUSR2, [ & ] { told_.push_back( "usr2" ); } );
   ::kill( ::getpid(), SIGUSR2 );
   EXPECT_THAT( told_, ElementsAre() );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "usr2" ) );
   ::kill( ::getpid(), SIGUSR1 );
   loop_.turn( 1s );
   EXPECT_THAT( told_, ElementsAre( "usr2", "usr1" ) );
}

TEST( EventLoopSignals, AreUnblockedWhenTheLoopIsDestroyed ) {
   {
      EventLoop loop;
      loop.signalIs( SIGUSR1, [] {} );
   }
   sigset_t blocked;
   ::pthread_sigmask( SIG_BLOCK, nullptr, &blocked );
   EXPECT_FALSE( sigismember( &blocked, SIGUSR1 ) );
}

TEST( FdTest, ClosesItsDescriptorOnce ) {
   int number;
   {
      Fd const fd = requireFd( ::dup( 0 ), "dup" );
      number = fd.get();
      Fd moved( std::move( const_cast< Fd & >( fd ) ) );
      EXPECT_FALSE( fd );
      EXPECT_EQ( moved.get(), number );
      EXPECT_GE( ::fcntl( number, F_GETFD ), 0 );
   }
   EXPECT_LT( ::fcntl( number, F_GETFD ), 0 );
}

TEST( FdTest, ClosingDoesNotChangeErrno ) {
   Fd fd( 12345 ); // not open, so close fails
   errno = EAGAIN;
   fd.close();
   EXPECT_EQ( errno, EAGAIN );
}

TEST( FdTest, AFailedCallIsThrownWithItsName ) {
   errno = EMFILE;
   try {
      requireFd( -1, "socket" );
      FAIL() << "accepted";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_STREQ( e.what(), "socket: Too many open files" );
      EXPECT_EQ( e.number(), EMFILE );
   }
}

} // namespace
} // namespace Valen::Linux
