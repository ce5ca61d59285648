#include "linux/StandardError.h"

#include "linux/Fd.h"
#include "platform/quill/Assert.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Valen::Linux {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Runs work in a child process whose standard error is a pipe.
class StandardErrorTest : public ::testing::Test {
 protected:
   template < class Work > void start( Work work, int pipeBytes = 4096 ) {
      std::array< int, 2 > ends{};
      ASSERT_EQ( ::pipe2( ends.data(), O_CLOEXEC ), 0 );
      pipe_ = Fd( ends[ 0 ] );
      Fd const writing( ends[ 1 ] );
      ASSERT_GT( ::fcntl( writing.get(), F_SETPIPE_SZ, pipeBytes ), 0 );
      child_ = ::fork();
      if ( child_ == 0 ) {
         rlimit const none{ 0, 0 };
         ::setrlimit( RLIMIT_CORE, &none );
         ::dup2( writing.get(), STDERR_FILENO );
         work();
         ::_exit( 0 );
      }
   }
   // Waits for the child's end. Returns its exit status, or 1000 plus the signal that ended it.
   int wait() {
      int status = 0;
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
      while ( ::waitpid( child_, &status, WNOHANG ) == 0 ) {
         if ( std::chrono::steady_clock::now() > end ) {
            ADD_FAILURE() << "the child hangs";
            ::kill( child_, SIGKILL );
            ::waitpid( child_, &status, 0 );
            break;
         }
         ::usleep( 5000 );
      }
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : 1000 + WTERMSIG( status );
   }
   // Reads until the child has closed the pipe.
   std::string readAll() {
      std::string all;
      std::array< char, 4096 > buffer;
      for ( ;; ) {
         auto const got = ::read( pipe_.get(), buffer.data(), buffer.size() );
         if ( got <= 0 ) {
            return all;
         }
         all.append( buffer.data(), static_cast< std::size_t >( got ) );
      }
   }

   Fd pipe_;
   pid_t child_ = -1;
};

TEST_F( StandardErrorTest, APipeThatIsNotReadDoesNotHoldUpTheProcess ) {
   start( [] {
      StandardError error;
      int begins = 0;
      error.droppingIs( [ & ] { ++begins; } );
      for ( int i = 0; i < 30'000; ++i ) {
         StandardError::put( "a line of the log with some text " + std::to_string( i ) + "\n" );
      }
      ::_exit( error.dropped() > 0 && error.dropping() && begins == 1 ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
}

TEST_F( StandardErrorTest, TheLastLineSaysHowManyWereDropped ) {
   start( [] {
      StandardError error;
      for ( int i = 0; i < 30'000; ++i ) {
         StandardError::put( "a line of the log with some text " + std::to_string( i ) + "\n" );
      }
      ::raise( SIGSTOP ); // until the reader begins
      while ( error.dropping() ) {
         ::usleep( 1000 );
      }
   } );
   int status = 0;
   ASSERT_EQ( ::waitpid( child_, &status, WUNTRACED ), child_ );
   ASSERT_TRUE( WIFSTOPPED( status ) );
   ::kill( child_, SIGCONT );
   auto const all = readAll();
   EXPECT_EQ( wait(), 0 );
   EXPECT_THAT( all, EndsWith( " lines dropped: standard error was not read\n" ) );
   auto const lines = static_cast< unsigned long >( std::count( all.begin(), all.end(), '\n' ) );
   auto const last = all.substr( all.rfind( '\n', all.size() - 2 ) + 1 );
   EXPECT_THAT( last, StartsWith( "valend: " ) );
   EXPECT_EQ( lines - 1 + std::stoul( last.substr( 8 ) ), 30'000u );
}

TEST_F( StandardErrorTest, LinesBeforeAnAssertionComeOutBeforeIt ) {
   start(
      [] {
         StandardError error;
         for ( int i = 0; i < 20; ++i ) {
            StandardError::put( std::to_string( i ) + "\n" );
         }
         VALEN_ASSERT( 1 == 2 );
      },
      65536 );
   EXPECT_EQ( wait(), 1000 + SIGABRT );
   EXPECT_THAT( readAll(), HasSubstr( "\n18\n19\nassertion failed: 1 == 2 at " ) );
}

TEST_F( StandardErrorTest, AnAssertionEndsTheProcessThoughNothingIsRead ) {
   start( [] {
      StandardError error;
      for ( int i = 0; i < 2000; ++i ) {
         StandardError::put( "a line of the log with some text " + std::to_string( i ) + "\n" );
      }
      VALEN_ASSERT( 1 == 2 );
   } );
   EXPECT_EQ( wait(), 1000 + SIGABRT );
}

TEST_F( StandardErrorTest, TheFlagsOfTheDescriptorDoNotChange ) {
   start( [] {
      auto const before = ::fcntl( STDERR_FILENO, F_GETFL );
      {
         StandardError const error;
         StandardError::put( "x\n" );
         if ( ::fcntl( STDERR_FILENO, F_GETFL ) != before ) {
            ::_exit( 4 );
         }
      }
      ::_exit( ::fcntl( STDERR_FILENO, F_GETFL ) == before ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
   EXPECT_EQ( readAll(), "x\n" );
}

TEST_F( StandardErrorTest, AnotherProcessMayHaveMadeItNonBlocking ) {
   start( [] {
      ::fcntl( STDERR_FILENO, F_SETFL, O_WRONLY | O_NONBLOCK );
      StandardError error;
      for ( int i = 0; i < 1000; ++i ) {
         StandardError::put( "a line of the log with some text " + std::to_string( i ) + "\n" );
      }
      ::usleep( 100'000 ); // meanwhile the pipe is full
      ::_exit( error.dropped() == 0 ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
}

} // namespace
} // namespace Valen::Linux
