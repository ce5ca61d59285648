#include "valend/base/AtomicFile.h"

#include "linux/Directory.h"
#include "tests/support/WorkDirectory.h"

#include <sys/stat.h>

namespace Valend {
namespace {

class AtomicFileTest : public ::testing::Test {
 protected:
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
