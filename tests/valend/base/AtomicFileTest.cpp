#include "valend/base/AtomicFile.h"

#include "linux/Directory.h"
#include "tests/support/WorkDirectory.h"

#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// What another process does, or sees, at that moment.
std::function< void() > afterUnlink;
std::function< void() > beforeFchmod;
std::function< void( int fd ) > beforeSync;

void run( std::function< void() > const & work ) {
   if ( work ) {
      work();
   }
}

} // namespace

// Replace the functions of the C library.
extern "C" int unlinkat( int directory, char const * name, int flags ) noexcept {
   auto const result = static_cast< int >( ::syscall( SYS_unlinkat, directory, name, flags ) );
   run( std::exchange( afterUnlink, nullptr ) );
   return result;
}

extern "C" int fchmod( int fd, mode_t mode ) noexcept {
   run( beforeFchmod );
   return static_cast< int >( ::syscall( SYS_fchmod, fd, mode ) );
}

extern "C" int fsync( int fd ) {
   if ( beforeSync ) {
      beforeSync( fd );
   }
   return static_cast< int >( ::syscall( SYS_fsync, fd ) );
}

extern "C" int fdatasync( int fd ) {
   if ( beforeSync ) {
      beforeSync( fd );
   }
   return static_cast< int >( ::syscall( SYS_fdatasync, fd ) );
}

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AtomicFileTest : public ::testing::Test {
 protected:
   ~AtomicFileTest() override {
      afterUnlink = nullptr;
      beforeFchmod = nullptr;
      beforeSync = nullptr;
   }
   unsigned mode( std::string const & name ) const {
      struct stat status {};
      EXPECT_EQ( ::stat( ( work / name ).c_str(), &status ), 0 );
      return status.st_mode & 0777;
   }

   Valen::Test::WorkDirectory const work;
};

TEST_F( AtomicFileTest, TheContentIsReplacedAndNothingElseIsLeft ) {
   work.write( "file", "a longer text than the new one" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ), "" );
   EXPECT_EQ( work.content( "file" ), "new" );
   EXPECT_EQ( mode( "file" ), 0640u );
   EXPECT_FALSE( work.has( "file.new" ) );
}

TEST_F( AtomicFileTest, TheUmaskDoesNotChangeThePermissions ) {
   auto const before = ::umask( 0077 );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0644 ), "" );
   ::umask( before );
   EXPECT_EQ( mode( "file" ), 0644u );
}

TEST_F( AtomicFileTest, ALinkInPlaceOfTheNewFileIsNotFollowed ) {
   work.write( "other", "not ours" );
   work.link( work / "other", "file.new" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ), "" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
   EXPECT_EQ( work.content( "file" ), "new" );
}

TEST_F( AtomicFileTest, AFileThatAppearsInPlaceOfTheNewOneIsNotWrittenTo ) {
   work.write( "file", "old" );
   work.write( "other", "not ours" );
   afterUnlink = [ this ] {
      std::filesystem::create_hard_link( work / "other", work / "file.new" );
   };
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ),
              "cannot write " + work / "file.new" + ": File exists" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
   EXPECT_EQ( work.content( "file" ), "old" );
   afterUnlink = [ this ] { work.link( work / "nothing", "file.new" ); };
   EXPECT_NE( writeAtomically( work / "file", "new", 0640 ), "" );
   EXPECT_FALSE( work.has( "nothing" ) );
}

TEST_F( AtomicFileTest, NobodyElseCanOpenItBeforeItIsWhole ) {
   auto const before = ::umask( 0 );
   unsigned first = 0;
   beforeFchmod = [ & ] { first = mode( "file.new" ); };
   EXPECT_EQ( writeAtomically( work / "file", "new", 0644 ), "" );
   ::umask( before );
   EXPECT_EQ( first, 0600u );
   EXPECT_EQ( mode( "file" ), 0644u );
}

TEST_F( AtomicFileTest, WhatMustSurviveIsOnTheDiskBeforeItHasItsNameAndThenTheNameIs ) {
   std::vector< std::string > synced;
   beforeSync = [ & ]( int fd ) {
      struct stat status {};
      EXPECT_EQ( ::fstat( fd, &status ), 0 );
      synced.push_back(
         ( S_ISDIR( status.st_mode ) ? "directory, the file is " : "file, it was " ) +
         work.content( "file" ) );
   };
   work.write( "file", "old" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640, Sync::yes ), "" );
   EXPECT_THAT( synced, ElementsAre( "file, it was old", "directory, the file is new" ) );
   synced.clear();
   EXPECT_EQ( writeAtomically( work / "file", "newer", 0640 ), "" );
   EXPECT_THAT( synced, IsEmpty() );
}

TEST_F( AtomicFileTest, WhatIsAppendedIsOnTheDisk ) {
   std::vector< std::string > synced;
   beforeSync = [ & ]( int ) { synced.push_back( work.content( "file" ) ); };
   work.write( "file", "one " );
   auto const directory = Valen::Linux::openDirectory( work / "" );
   EXPECT_EQ( appendSynced( directory.get(), work / "file", "two" ), "" );
   EXPECT_THAT( synced, ElementsAre( "one two" ) );
}

TEST_F( AtomicFileTest, NothingIsAppendedToANewFileNorThroughALink ) {
   auto const directory = Valen::Linux::openDirectory( work / "" );
   EXPECT_EQ( appendSynced( directory.get(), work / "file", "two" ),
              "cannot write " + work / "file" + ": No such file or directory" );
   work.write( "other", "not ours" );
   work.link( work / "other", "file" );
   EXPECT_EQ( appendSynced( directory.get(), work / "file", "two" ),
              "cannot write " + work / "file" + ": Too many levels of symbolic links" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
}

TEST_F( AtomicFileTest, ALinkInPlaceOfTheFileIsReplaced ) {
   work.write( "other", "not ours" );
   work.link( work / "other", "file" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ), "" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
   EXPECT_FALSE( std::filesystem::is_symlink( work / "file" ) );
}

TEST_F( AtomicFileTest, InAnOpenDirectoryAChangeOfItsPathHasNoEffect ) {
   work.directory( "state" );
   work.directory( "trap" );
   auto const directory = Valen::Linux::openDirectory( work / "state" );
   std::filesystem::rename( work / "state", work / "moved" );
   work.link( work / "trap", "state" );
   EXPECT_EQ( writeAtomically( directory.get(), work / "state/file", "new", 0640 ), "" );
   EXPECT_EQ( work.content( "moved/file" ), "new" );
   EXPECT_FALSE( work.has( "trap/file" ) );
}

TEST_F( AtomicFileTest, AReaderKeepsTheOldContent ) {
   work.write( "file", "old" );
   std::ifstream reader( work / "file" );
   ASSERT_EQ( writeAtomically( work / "file", "new", 0640 ), "" );
   std::string word;
   reader >> word;
   EXPECT_EQ( word, "old" ) << "the file was not written in place";
}

TEST_F( AtomicFileTest, AHalfWrittenFileOfACrashIsReplaced ) {
   work.write( "file.new", "half of a much longer text" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ), "" );
   EXPECT_EQ( work.content( "file" ), "new" );
}

TEST_F( AtomicFileTest, AFileThatCannotBeCreatedIsAnError ) {
   EXPECT_EQ( writeAtomically( work / "none/file", "new", 0640 ),
              "cannot write " + work / "none/file.new" + ": No such file or directory" );
}

TEST_F( AtomicFileTest, AFailedRenameLeavesThePreviousStateAndNoNewFile ) {
   work.directory( "file/occupied" );
   EXPECT_EQ( writeAtomically( work / "file", "new", 0640 ),
              "cannot write " + work / "file" + ": Is a directory" );
   EXPECT_TRUE( work.has( "file/occupied" ) );
   EXPECT_FALSE( work.has( "file.new" ) );
}

} // namespace
} // namespace Valend
