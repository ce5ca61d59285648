#include "valenctl/text/Terminal.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Valenctl {
namespace {

// Puts a new pseudoterminal in place of standard output for its lifetime.
class TerminalAsOutput {
 public:
   TerminalAsOutput()
       : saved_( ::dup( STDOUT_FILENO ) ), master_( ::posix_openpt( O_RDWR | O_NOCTTY ) ) {
      ::grantpt( master_ );
      ::unlockpt( master_ );
      auto const slave = ::open( ::ptsname( master_ ), O_RDWR | O_NOCTTY );
      ::dup2( slave, STDOUT_FILENO );
      ::close( slave );
   }
   ~TerminalAsOutput() {
      ::dup2( saved_, STDOUT_FILENO );
      ::close( saved_ );
      ::close( master_ );
   }
   TerminalAsOutput( TerminalAsOutput const & ) = delete;
   TerminalAsOutput & operator=( TerminalAsOutput const & ) = delete;

 private:
   int const saved_;
   int const master_;
};

TEST( TerminalTest, APlainPaletteLeavesTextAsItIs ) {
   EXPECT_EQ( Palette::plain().red( "x" ), "x" );
   EXPECT_EQ( Palette::plain().green( "x" ), "x" );
   EXPECT_EQ( Palette::plain().yellow( "x" ), "x" );
}

TEST( TerminalTest, AColoredPaletteAddsCodes ) {
   EXPECT_EQ( Palette::colored().red( "x" ), "\x1b[31mx\x1b[0m" );
   EXPECT_EQ( Palette::colored().green( "x" ), "\x1b[32mx\x1b[0m" );
   EXPECT_EQ( Palette::colored().yellow( "x" ), "\x1b[33mx\x1b[0m" );
}

TEST( TerminalTest, ATerminalIsColoredUnlessNoColorIsSet ) {
   ::unsetenv( "NO_COLOR" );
   Terminal colored, plain;
   {
      TerminalAsOutput const output;
      colored = terminalOfProcess();
      ::setenv( "NO_COLOR", "1", 1 );
      plain = terminalOfProcess();
      ::unsetenv( "NO_COLOR" );
   }
   EXPECT_TRUE( colored.out );
   EXPECT_EQ( colored.palette.red( "x" ), Palette::colored().red( "x" ) );
   EXPECT_TRUE( plain.out );
   EXPECT_EQ( plain.palette.red( "x" ), "x" );
}

TEST( TerminalTest, AFileIsNotColored ) {
   auto const saved = ::dup( STDOUT_FILENO );
   auto const null = ::open( "/dev/null", O_WRONLY );
   ::dup2( null, STDOUT_FILENO );
   auto const terminal = terminalOfProcess();
   ::dup2( saved, STDOUT_FILENO );
   ::close( saved );
   ::close( null );
   EXPECT_FALSE( terminal.out );
   EXPECT_EQ( terminal.palette.red( "x" ), "x" );
}

} // namespace
} // namespace Valenctl
