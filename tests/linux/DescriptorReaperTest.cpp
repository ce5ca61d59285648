#include "linux/DescriptorReaper.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Valen::Linux {
namespace {

bool isOpen( int fd ) {
   return ::fcntl( fd, F_GETFD ) >= 0;
}

TEST( DescriptorReaperTest, ClosesItsDescriptors ) {
   DescriptorReaper reaper;
   std::vector< int > numbers;
   for ( int i = 0; i < 50; ++i ) {
      auto fd = requireFd( ::dup( 0 ), "dup" );
      numbers.push_back( fd.get() );
      reaper.reap( std::move( fd ) );
   }
   reaper.drain();
   EXPECT_EQ( reaper.pending(), 0u );
   for ( auto const number : numbers ) {
      EXPECT_FALSE( isOpen( number ) );
   }
}

TEST( DescriptorReaperTest, ClosesEverythingBeforeItIsDestroyed ) {
   int number;
   {
      DescriptorReaper reaper;
      auto fd = requireFd( ::dup( 0 ), "dup" );
      number = fd.get();
      reaper.reap( std::move( fd ) );
   }
   EXPECT_FALSE( isOpen( number ) );
}

TEST( DescriptorReaperTest, AnEmptyDescriptorHasNoEffect ) {
   DescriptorReaper reaper;
   reaper.reap( Fd() );
   reaper.drain();
   EXPECT_EQ( reaper.pending(), 0u );
}

TEST( DescriptorReaperTest, ItsThreadsBlockSignals ) {
   // Only this thread blocks the signal: any other thread that does not would end the process.
   sigset_t signals;
   sigemptyset( &signals );
   sigaddset( &signals, SIGUSR1 );
   DescriptorReaper reaper;
   reaper.reap( requireFd( ::dup( 0 ), "dup" ) );
   reaper.drain();
   ::pthread_sigmask( SIG_BLOCK, &signals, nullptr );
   ::kill( ::getpid(), SIGUSR1 );
   timespec const timeout{ 2, 0 };
   EXPECT_EQ( ::sigtimedwait( &signals, nullptr, &timeout ), SIGUSR1 );
   ::pthread_sigmask( SIG_UNBLOCK, &signals, nullptr );
}

} // namespace
} // namespace Valen::Linux
