#include "linux/TraceOutputs.h"

#include "platform/quill/Assert.h"
#include "tests/support/WorkDirectory.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Valen::Linux {
namespace {

QUILL_TRACE_UNIT( "TraceOutputsTest" )

using ::testing::MatchesRegex;
using ::testing::StartsWith;

void traceTwoLines() {
   TRACE0( "vrf %s", "blue" );
   TRACE1( "not initialized" );
}

// Traces two lines to a sink, with their levels enabled.
class TraceOutputsTest : public ::testing::Test {
 protected:
   TraceOutputsTest() { Quill::traceLevelsIs( "TraceOutputsTest/0-1" ); }
   ~TraceOutputsTest() override {
      Quill::traceSinkIs( nullptr );
      Quill::traceLevelsIs( "" );
      ::unsetenv( "JOURNAL_STREAM" );
   }

   std::string file( std::string const & name ) const { return directory_ / name; }
   static std::vector< std::string > lines( std::string const & path ) {
      std::ifstream stream( path );
      std::vector< std::string > lines;
      for ( std::string line; std::getline( stream, line ); ) {
         lines.push_back( line );
      }
      return lines;
   }
   // What `work` writes to standard error.
   template < class Work > static std::string standardError( Work work ) {
      ::testing::internal::CaptureStderr();
      work();
      return ::testing::internal::GetCapturedStderr();
   }

   Valen::Test::WorkDirectory const directory_;
};

std::string const headPattern = "void Valen::Linux::.anonymous.*.::traceTwoLines\\(\\): ";
std::string const stampPattern =
   "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}.[0-9]{6}Z TraceOutputsTest/";

// --- Standard error ------------------------------------------------------------------------------

TEST_F( TraceOutputsTest, TheJournalGetsPriorities ) {
   StderrTraceSink sink( StderrTraceSink::Reader::journal );
   Quill::traceSinkIs( &sink );
   auto const text = standardError( traceTwoLines );
   EXPECT_THAT( text, MatchesRegex( "<6>" + headPattern + "vrf blue\n<7>" + headPattern +
                                    "not initialized\n" ) );
}

TEST_F( TraceOutputsTest, ATerminalGetsTimeUnitAndLevel ) {
   StderrTraceSink sink( StderrTraceSink::Reader::other );
   Quill::traceSinkIs( &sink );
   auto const text = standardError( traceTwoLines );
   EXPECT_THAT( text, MatchesRegex( stampPattern + "0 " + headPattern + "vrf blue\n" +
                                    stampPattern + "1 " + headPattern + "not initialized\n" ) );
}

TEST_F( TraceOutputsTest, TheJournalIsRecognizedByItsFile ) {
   EXPECT_FALSE( StderrTraceSink().journal() );
   struct stat status;
   ASSERT_EQ( ::fstat( STDERR_FILENO, &status ), 0 );
   auto const own = std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino );
   ::setenv( "JOURNAL_STREAM", own.c_str(), 1 );
   EXPECT_TRUE( StderrTraceSink().journal() );
   ::setenv( "JOURNAL_STREAM", ( own + "1" ).c_str(), 1 ); // inherited, then redirected
   EXPECT_FALSE( StderrTraceSink().journal() );
}

TEST_F( TraceOutputsTest, TracingDoesNotChangeErrno ) {
   StderrTraceSink sink( StderrTraceSink::Reader::other );
   Quill::traceSinkIs( &sink );
   auto const text = standardError( [] {
      auto const number = ::dup( STDERR_FILENO );
      ::close( STDERR_FILENO ); // so that writing fails
      errno = EXDEV;
      traceTwoLines();
      EXPECT_EQ( errno, EXDEV );
      ::dup2( number, STDERR_FILENO );
      ::close( number );
   } );
   EXPECT_EQ( text, "" );
}

// --- File ----------------------------------------------------------------------------------------

TEST_F( TraceOutputsTest, LinesAreAppendedToTheFile ) {
   std::ofstream( file( "trace" ) ) << "before\n";
   FileTraceSink sink( file( "trace" ) );
   Quill::traceSinkIs( &sink );
   traceTwoLines();
   sink.flush();
   auto const written = lines( file( "trace" ) );
   ASSERT_EQ( written.size(), 3u );
   EXPECT_EQ( written[ 0 ], "before" );
   EXPECT_THAT( written[ 1 ], MatchesRegex( stampPattern + "0 " + headPattern + "vrf blue" ) );
   EXPECT_THAT( written[ 2 ],
                MatchesRegex( stampPattern + "1 " + headPattern + "not initialized" ) );
   EXPECT_EQ( sink.lost(), 0u );
}

TEST_F( TraceOutputsTest, AMovedFileIsReopened ) {
   FileTraceSink sink( file( "trace" ) );
   Quill::traceSinkIs( &sink );
   traceTwoLines();
   std::filesystem::rename( file( "trace" ), file( "trace.1" ) );
   traceTwoLines();
   sink.flush();
   sink.reopen();
   traceTwoLines();
   sink.flush();
   EXPECT_EQ( lines( file( "trace.1" ) ).size(), 4u );
   EXPECT_EQ( lines( file( "trace" ) ).size(), 2u );
}

TEST_F( TraceOutputsTest, FailedReopeningKeepsTheOldFile ) {
   std::filesystem::create_directory( file( "logs" ) );
   FileTraceSink sink( file( "logs/trace" ) );
   Quill::traceSinkIs( &sink );
   std::filesystem::rename( file( "logs" ), file( "old" ) );
   try {
      sink.reopen();
      FAIL() << "reopened";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.text(),
                 "cannot open trace file " + file( "logs/trace" ) + ": No such file or directory" );
      EXPECT_EQ( e.number(), ENOENT );
   }
   traceTwoLines();
   sink.flush();
   EXPECT_EQ( lines( file( "old/trace" ) ).size(), 2u );
}

TEST_F( TraceOutputsTest, LinesThatCannotBeWrittenAreCounted ) {
   FileTraceSink sink( "/dev/full" );
   Quill::traceSinkIs( &sink );
   traceTwoLines();
   sink.flush();
   EXPECT_EQ( sink.lost(), 2u );
}

TEST_F( TraceOutputsTest, AFileThatBlocksIsNotWaitedFor ) {
   ASSERT_EQ( ::mkfifo( file( "fifo" ).c_str(), 0600 ), 0 );
   Fd const reader( ::open( file( "fifo" ).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC ) );
   FileTraceSink sink( file( "fifo" ) );
   Quill::traceSinkIs( &sink );
   for ( int i = 0; i < 2000; ++i ) {
      traceTwoLines();
   }
   sink.flush();
   EXPECT_GT( sink.lost(), 0u );
}

// --- Ring ----------------------------------------------------------------------------------------

std::vector< std::string > ringTexts( std::string const & path ) {
   auto const bytes = RingFile::read( path );
   Blipline::Reader reader( bytes );
   EXPECT_TRUE( reader.valid() );
   std::vector< std::string > texts;
   Blipline::Line line;
   while ( reader.next( line ) ) {
      texts.emplace_back( line.text.view() );
   }
   EXPECT_FALSE( reader.damaged() );
   return texts;
}

TEST_F( TraceOutputsTest, TheRingFileHasTheLines ) {
   {
      RingFile const ring( file( "ring" ), 10000 );
      EXPECT_EQ( ring.memory().size() % 4096, 0u );
      EXPECT_GE( ring.memory().size(), 10000u );
      traceTwoLines();
   }
   EXPECT_EQ( Blipline::ring(), nullptr );
   traceTwoLines(); // without a ring
   auto const texts = ringTexts( file( "ring" ) );
   ASSERT_EQ( texts.size(), 2u );
   EXPECT_THAT( texts[ 0 ], MatchesRegex( headPattern + "vrf blue" ) );
   EXPECT_THAT( texts[ 1 ], MatchesRegex( headPattern + "not initialized" ) );
}

class RingAfterADeath : public TraceOutputsTest {
 protected:
   // Lets a child process trace and die. Returns its status.
   template < class Death > int die( Death death ) {
      auto const pid = ::fork();
      if ( pid == 0 ) {
         rlimit const none{ 0, 0 };
         ::setrlimit( RLIMIT_CORE, &none );
         ::close( STDERR_FILENO ); // keeps its output out of the test's
         RingFile const ring( file( "ring" ), 65536 );
         traceTwoLines();
         death();
         ::_exit( 0 );
      }
      int status = 0;
      ::waitpid( pid, &status, 0 );
      return WIFSIGNALED( status ) ? WTERMSIG( status ) : 0;
   }
};

TEST_F( RingAfterADeath, SurvivesAFailedAssertion ) {
   EXPECT_EQ( die( [] { VALEN_ASSERT( 1 == 2 ); } ), SIGABRT );
   EXPECT_EQ( ringTexts( file( "ring" ) ).size(), 2u );
}

TEST_F( RingAfterADeath, SurvivesAKill ) {
   EXPECT_EQ( die( [] { ::kill( ::getpid(), SIGKILL ); } ), SIGKILL );
   EXPECT_EQ( ringTexts( file( "ring" ) ).size(), 2u );
}

TEST_F( RingAfterADeath, IsKeptWhenTheNextProcessStarts ) {
   EXPECT_EQ( die( [] { ::kill( ::getpid(), SIGKILL ); } ), SIGKILL );
   RingFile const ring( file( "ring" ), 65536 );
   EXPECT_EQ( ringTexts( file( "ring" ) ).size(), 0u );
   EXPECT_EQ( ringTexts( file( "ring.previous" ) ).size(), 2u );
}

TEST_F( TraceOutputsTest, TheAbortHookIsInstalledOnlyWithTheRing ) {
   {
      RingFile const ring( file( "ring" ), 65536 );
      auto const hook = Quill::abortHookIs( nullptr );
      ASSERT_NE( hook, nullptr );
      hook(); // syncs the mapping
      Quill::abortHookIs( hook );
   }
   EXPECT_EQ( Quill::abortHookIs( nullptr ), nullptr );
}

TEST_F( TraceOutputsTest, ATooSmallRingIsRejectedAndKeepsTheOldFile ) {
   std::ofstream( file( "ring" ) ) << "old";
   try {
      RingFile const ring( file( "ring" ), 100 );
      FAIL() << "accepted";
   } catch ( Quill::RangeException const & e ) {
      EXPECT_EQ( e.text(), "trace ring " + file( "ring" ) + " needs at least 4096 bytes" );
   }
   EXPECT_EQ( lines( file( "ring" ) ), std::vector< std::string >{ "old" } );
}

TEST_F( TraceOutputsTest, ARingInAMissingDirectoryIsAnError ) {
   try {
      RingFile const ring( file( "nowhere/ring" ), 65536 );
      FAIL() << "accepted";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.text(), "cannot create trace ring " + file( "nowhere/ring" ) +
                              ": No such file or directory" );
   }
   EXPECT_THROW( RingFile::read( file( "nowhere/ring" ) ), Quill::ErrnoException );
}

} // namespace
} // namespace Valen::Linux
