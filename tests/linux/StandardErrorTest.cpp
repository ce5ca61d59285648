#include "linux/StandardError.h"

#include "linux/Fd.h"
#include "platform/quill/Assert.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
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
   std::string readAll() { return readUntil( "" ); }
   // Reads until what comes has `text`, or that. An empty text never comes.
   std::string readUntil( std::string const & text ) {
      std::string all;
      std::array< char, 4096 > buffer;
      pollfd ready{ pipe_.get(), POLLIN, 0 };
      while ( text.empty() || all.find( text ) == all.npos ) {
         if ( ::poll( &ready, 1, 30'000 ) <= 0 ) {
            return all;
         }
         auto const got = ::read( pipe_.get(), buffer.data(), buffer.size() );
         if ( got <= 0 ) {
            return all;
         }
         all.append( buffer.data(), static_cast< std::size_t >( got ) );
      }
      return all;
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

TEST_F( StandardErrorTest, EachTimeThatLinesBeginToBeDroppedIsTold ) {
   start( [ this ] {
      StandardError error;
      int begins = 0;
      error.droppingIs( [ & ] { ++begins; } );
      ::fcntl( pipe_.get(), F_SETFL, O_NONBLOCK );
      std::array< char, 4096 > buffer;
      for ( int round = 0; round < 2; ++round ) {
         for ( int i = 0; i < 100 || !error.dropping(); ++i ) {
            StandardError::put( std::string( 50'000, 'x' ) + "\n" );
         }
         while ( error.dropping() ) {
            [[maybe_unused]] auto const got = ::read( pipe_.get(), buffer.data(), buffer.size() );
         }
         StandardError::put( "x\n" ); // which is not dropped
      }
      ::_exit( begins == 2 ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
}

TEST_F( StandardErrorTest, TheLastLineSaysHowManyWereDropped ) {
   start( [ this ] {
      pipe_.close();
      StandardError error;
      for ( int i = 0; i < 30'000; ++i ) {
         StandardError::put( "a line of the log with some text " + std::to_string( i ) + "\n" );
      }
      ::raise( SIGSTOP ); // until the reader begins
      pollfd reader{ STDERR_FILENO, 0, 0 };
      ::poll( &reader, 1, -1 ); // until it has read all
   } );
   int status = 0;
   ASSERT_EQ( ::waitpid( child_, &status, WUNTRACED ), child_ );
   ASSERT_TRUE( WIFSTOPPED( status ) );
   ::kill( child_, SIGCONT );
   auto const all = readUntil( " lines dropped: standard error was not read\n" );
   pipe_.close();
   EXPECT_EQ( wait(), 0 );
   ASSERT_THAT( all, EndsWith( " lines dropped: standard error was not read\n" ) );
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

TEST_F( StandardErrorTest, ALineThatFitsInPartOnlyComesWhole ) {
   std::string const line( 100'000, 'x' );
   start( [ & ] {
      ::fcntl( STDERR_FILENO, F_SETFL, O_WRONLY | O_NONBLOCK ); // by another process
      StandardError::put( line );
   } );
   EXPECT_EQ( readAll(), line );
   EXPECT_EQ( wait(), 0 );
}

// Code that is traced may look at it afterwards.
TEST_F( StandardErrorTest, ErrnoStaysTheSame ) {
   start( [] {
      ::close( STDERR_FILENO );
      errno = ERANGE;
      StandardError::put( "x\n" );
      ::_exit( errno == ERANGE ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
}

TEST_F( StandardErrorTest, ItIsTheJournalsWhenTheServiceManagerSaysSoOfThisFile ) {
   start( [] {
      struct stat status {};
      ::fstat( STDERR_FILENO, &status );
      auto const isJournal = []( std::string const & stream ) {
         ::setenv( "JOURNAL_STREAM", stream.c_str(), 1 );
         return StandardError::isJournal();
      };
      auto const device = std::to_string( status.st_dev );
      auto const inode = std::to_string( status.st_ino );
      bool const right = isJournal( device + ":" + inode ) && !isJournal( device + ":1" + inode ) &&
                         !isJournal( "1" + device + ":" + inode ) && !isJournal( "" );
      ::unsetenv( "JOURNAL_STREAM" );
      ::_exit( right && !StandardError::isJournal() ? 3 : 4 );
   } );
   EXPECT_EQ( wait(), 3 );
}

} // namespace
} // namespace Valen::Linux
