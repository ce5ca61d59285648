#include "valenctl/frame/Program.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace Valenctl {
namespace {

using namespace std::chrono_literals;

ProgramOutput shell( std::string const & command, std::chrono::milliseconds timeout = 30s ) {
   return outputOf( { "sh", "-c", command }, timeout );
}

std::string programError( std::vector< std::string > const & arguments,
                          std::chrono::milliseconds timeout = 30s ) {
   try {
      outputOf( arguments, timeout );
   } catch ( std::runtime_error const & e ) {
      return e.what();
   }
   return "";
}

TEST( ProgramTest, BothOutputsAndTheStatusAreReturned ) {
   auto const output = shell( "echo out; echo err >&2; exit 3" );
   EXPECT_EQ( output.status, 3 );
   EXPECT_EQ( output.out, "out\n" );
   EXPECT_EQ( output.err, "err\n" );
}

TEST( ProgramTest, MoreThanAPipeHoldsIsRead ) {
   EXPECT_EQ( shell( "head -c 300000 /dev/zero" ).out.size(), 300000u );
}

TEST( ProgramTest, StandardInputIsEmpty ) {
   EXPECT_EQ( shell( "cat; echo end" ).out, "end\n" );
}

TEST( ProgramTest, AProgramThatASignalEndedHasAStatusAsInAShell ) {
   EXPECT_EQ( shell( "kill -9 $$" ).status, 128 + 9 );
}

TEST( ProgramTest, AProgramThatDoesNotEndIsKilled ) {
   auto const begin = std::chrono::steady_clock::now();
   EXPECT_EQ( programError( { "sleep", "60" }, 50ms ), "sleep did not end within 50 ms" );
   EXPECT_EQ( programError( { "sh", "-c", "exec >&- 2>&-; exec sleep 60" }, 50ms ),
              "sh did not end within 50 ms" );
   EXPECT_LT( std::chrono::steady_clock::now() - begin, 30s );
}

TEST( ProgramTest, AProgramThatLeftAnotherRunningIsNotWaitedFor ) {
   auto const begin = std::chrono::steady_clock::now();
   EXPECT_EQ( shell( "sleep 20 & echo out" ).out, "out\n" );
   EXPECT_LT( std::chrono::steady_clock::now() - begin, 15s );
}

TEST( ProgramTest, AMissingProgramIsNamed ) {
   EXPECT_EQ( programError( { "vt-none" } ), "vt-none is not installed" );
   EXPECT_EQ( programError( { "/dev/null" } ), "cannot run /dev/null: Permission denied" );
}

TEST( ProgramTest, ProgramsForAdministratorsAreFoundWithoutAPath ) {
   auto const * const path = std::getenv( "PATH" );
   std::string const before( path ? path : "" );
   ::setenv( "PATH", "/usr/bin:/bin", 1 );
   EXPECT_EQ( programError( { "ldconfig", "--version" } ), "" ); // is in /usr/sbin
   ::setenv( "PATH", before.c_str(), 1 );
}

} // namespace
} // namespace Valenctl
