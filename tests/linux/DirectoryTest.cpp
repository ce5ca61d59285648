#include "linux/Directory.h"

#include "tests/support/WorkDirectory.h"

#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::function< void() > afterMkdir; // what another process does, or sees, right then

} // namespace

// Replaces the function of the C library.
extern "C" int mkdir( char const * path, mode_t mode ) noexcept {
   auto const result = static_cast< int >( ::syscall( SYS_mkdirat, AT_FDCWD, path, mode ) );
   if ( afterMkdir ) {
      afterMkdir();
   }
   return result;
}

namespace Valen::Linux {
namespace {

class DirectoryTest : public ::testing::Test {
 protected:
   ~DirectoryTest() override {
      afterMkdir = nullptr;
      ::umask( before_ );
   }
   // Of the directory `name`.
   unsigned mode( std::string const & name ) const {
      struct stat status {};
      EXPECT_EQ( ::stat( ( work / name ).c_str(), &status ), 0 );
      return status.st_mode & 07777;
   }

   Valen::Test::WorkDirectory const work;

 private:
   mode_t const before_ = ::umask( 0022 );
};

TEST_F( DirectoryTest, TheUmaskDoesNotChangeThePermissions ) {
   for ( unsigned const umask : { 0u, 0022u, 0077u } ) {
      ::umask( umask );
      work.remove( "a" );
      ASSERT_TRUE( makeDirectory( work / "a/b/c", 0750 ) );
      ::umask( 0022 );
      EXPECT_EQ( mode( "a" ), 0755u );
      EXPECT_EQ( mode( "a/b" ), 0755u );
      EXPECT_EQ( mode( "a/b/c" ), 0750u );
   }
}

TEST_F( DirectoryTest, ADirectoryThatExistsIsNotChanged ) {
   ASSERT_TRUE( makeDirectory( work / "a", 0711 ) );
   EXPECT_TRUE( makeDirectory( work / "a//", 0750 ) );
   EXPECT_EQ( mode( "a" ), 0711u );
}

TEST_F( DirectoryTest, ANewOneIsPrivateUntilItsPermissionsAreSet ) {
   ::umask( 0 );
   unsigned first = 0;
   afterMkdir = [ & ] { first = mode( "a" ); };
   ASSERT_TRUE( makeDirectory( work / "a", 0755 ) );
   EXPECT_EQ( first, 0700u );
   EXPECT_EQ( mode( "a" ), 0755u );
}

TEST_F( DirectoryTest, ALinkThatTakesItsPlaceIsNotFollowed ) {
   ASSERT_TRUE( makeDirectory( work / "trap", 0711 ) );
   afterMkdir = [ this ] {
      work.remove( "a" );
      work.link( work / "trap", "a" );
   };
   EXPECT_FALSE( makeDirectory( work / "a", 0777 ) );
   EXPECT_EQ( errno, ENOTDIR );
   EXPECT_EQ( mode( "trap" ), 0711u );
}

TEST_F( DirectoryTest, AFailureHasErrno ) {
   work.write( "file", "" );
   EXPECT_FALSE( makeDirectory( work / "file/a", 0700 ) );
   EXPECT_EQ( errno, ENOTDIR );
   EXPECT_FALSE( makeDirectory( "", 0700 ) );
   EXPECT_EQ( errno, ENOENT );
}

TEST_F( DirectoryTest, TheDirectoryOfAPath ) {
   EXPECT_EQ( directoryOf( "/a/b/c" ), "/a/b" );
   EXPECT_EQ( directoryOf( "/a//b/" ), "/a" );
   EXPECT_EQ( directoryOf( "/a" ), "/" );
   EXPECT_EQ( directoryOf( "/" ), "/" );
   EXPECT_EQ( directoryOf( "a/b" ), "a" );
   EXPECT_EQ( directoryOf( "a" ), "." );
}

} // namespace
} // namespace Valen::Linux
