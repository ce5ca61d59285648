#include "valend/base/StateDirectory.h"

#include "tests/support/Fifo.h"
#include "tests/support/WorkDirectory.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StateDirectoryTest : public ::testing::Test {
 protected:
   static constexpr uid_t other = 65534;

   Valen::Test::WorkDirectory const work;
   std::string const path = work / "state";
   std::vector< std::string > warnings;
   StateDirectory::Warning const warning = [ this ]( auto const & text ) {
      warnings.push_back( text );
   };
};

TEST_F( StateDirectoryTest, ItIsCreatedForItsUserAlone ) {
   auto const before = ::umask( 0 );
   StateDirectory const state( work / "above/state/", warning );
   ::umask( before );
   EXPECT_EQ( state.path(), work / "above/state" );
   struct stat status {};
   ASSERT_EQ( ::fstat( state.fd(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777, 0700u );
   ASSERT_EQ( ::stat( ( work / "above" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 07777, 0755u );
   EXPECT_THAT( warnings, IsEmpty() );
}

TEST_F( StateDirectoryTest, ASecondProcessGetsAnErrorUntilTheFirstEnds ) {
   {
      StateDirectory const first( path, warning );
      try {
         StateDirectory const second( path, warning );
         FAIL() << "accepted";
      } catch ( Quill::ErrnoException const & e ) {
         EXPECT_EQ( e.text(), path + " is used by another valend process; stop it, or set "
                                     "another state-directory" );
      }
   }
   EXPECT_NO_THROW( StateDirectory( path, warning ) );
}

TEST_F( StateDirectoryTest, TheLockEndsWithTheProcess ) {
   int ready[ 2 ];
   ASSERT_EQ( ::pipe( ready ), 0 );
   auto const child = ::fork();
   if ( child == 0 ) {
      StateDirectory const first( path, warning );
      [[maybe_unused]] auto const told = ::write( ready[ 1 ], "x", 1 );
      ::pause();
      ::_exit( 0 );
   }
   char byte;
   ASSERT_EQ( ::read( ready[ 0 ], &byte, 1 ), 1 );
   EXPECT_THROW( StateDirectory( path, warning ), Quill::ErrnoException );
   ::kill( child, SIGKILL );
   ::waitpid( child, nullptr, 0 );
   EXPECT_NO_THROW( StateDirectory( path, warning ) );
   ::close( ready[ 0 ] );
   ::close( ready[ 1 ] );
}

TEST_F( StateDirectoryTest, OneThatCannotBeOpenedIsTriedAgain ) {
   work.write( "state", "a file" );
   StateDirectory state( path, warning );
   EXPECT_EQ( state.fd(), -1 );
   EXPECT_EQ( state.open(), "cannot open " + path + ": Not a directory" );
   work.remove( "state" );
   EXPECT_EQ( state.open(), "" );
   EXPECT_GE( state.fd(), 0 );
   auto const fd = state.fd();
   EXPECT_EQ( state.open(), "" ) << "it is open";
   EXPECT_EQ( state.fd(), fd );
   EXPECT_EQ( StateDirectory( "", warning ).open(), "no state directory" );
}

TEST_F( StateDirectoryTest, OnlyARegularFileWithinTheLimitIsRead ) {
   StateDirectory const state( path, warning );
   work.write( "state/file", "12345" );
   EXPECT_EQ( state.content( "file", 5 ), "12345" );
   EXPECT_EQ( state.content( "file", 4 ), std::nullopt );
   EXPECT_EQ( errno, EFBIG );
   work.directory( "state/directory" );
   EXPECT_EQ( state.content( "directory", 1 << 20 ), std::nullopt );
   EXPECT_EQ( errno, EFBIG );
   work.link( work / "state/file", "state/link" );
   EXPECT_EQ( state.content( "link", 5 ), std::nullopt );
   EXPECT_EQ( errno, ELOOP );
   EXPECT_EQ( state.content( "none", 5 ), std::nullopt );
   EXPECT_EQ( errno, ENOENT );
}

TEST_F( StateDirectoryTest, AFifoIsNotWaitedFor ) {
   StateDirectory const state( path, warning );
   EXPECT_EQ(
      Valen::Test::readOfFifo( path + "/fifo", [ & ] { return state.content( "fifo", 5 ); } ),
      std::nullopt );
}

TEST_F( StateDirectoryTest, OneThatOthersMayWriteIsNamed ) {
   work.directory( "state" );
   for ( auto const mode : { 0755, 0770, 0703 } ) {
      ASSERT_EQ( ::chmod( path.c_str(), static_cast< mode_t >( mode ) ), 0 );
      StateDirectory const state( path, warning );
   }
   auto const text = []( std::string const & directory, char const * mode ) {
      return "state directory " + directory + " has mode " + mode +
             ": other users can change shutdowns and frames; only valend's user should write there";
   };
   EXPECT_THAT( warnings, ElementsAre( text( path, "0770" ), text( path, "0703" ) ) );
}

TEST_F( StateDirectoryTest, OneOfAnotherUserIsNamedUnlessThatIsRoot ) {
   work.directory( "state" );
   if ( ::geteuid() != 0 || ::chown( path.c_str(), other, other ) < 0 ) {
      GTEST_SKIP() << "cannot give a directory to another user";
   }
   { StateDirectory const state( path, warning ); }
   EXPECT_THAT( warnings,
                ElementsAre( ::testing::HasSubstr( " belongs to uid 65534: other users" ) ) );
   warnings.clear();
   ASSERT_EQ( ::chown( path.c_str(), 0, 0 ), 0 );
   ASSERT_EQ( ::seteuid( other ), 0 );
   { StateDirectory const state( path, warning ); }
   ASSERT_EQ( ::seteuid( 0 ), 0 );
   EXPECT_THAT( warnings, IsEmpty() );
}

} // namespace
} // namespace Valend
