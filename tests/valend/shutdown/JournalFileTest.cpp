// The journal's files as other users of the machine meet them.
#include "valend/shutdown/JournalFile.h"

#include "tests/support/WorkDirectory.h"

#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::function< void() > afterUnlink; // what another process does right then

} // namespace

// Replaces the function of the C library.
extern "C" int unlinkat( int directory, char const * name, int flags ) noexcept {
   auto const result = static_cast< int >( ::syscall( SYS_unlinkat, directory, name, flags ) );
   if ( auto const work = std::exchange( afterUnlink, nullptr ) ) {
      work();
   }
   return result;
}

namespace Valend {
namespace {

class JournalFileTest : public ::testing::Test {
 protected:
   ~JournalFileTest() override { afterUnlink = nullptr; }
   unsigned mode( std::string const & name ) const {
      struct stat status {};
      EXPECT_EQ( ::stat( ( work / name ).c_str(), &status ), 0 );
      return status.st_mode & 07777;
   }

   Valen::Test::WorkDirectory const work;
   StateDirectory state{ work / "state", []( auto const & ) {} };
   JournalFile file{ state, "shutdowns", "header\n" };
};

TEST_F( JournalFileTest, TheFilesAreForTheirUserAlone ) {
   auto const before = ::umask( 0 );
   EXPECT_EQ( file.append( "one\n" ), "" );
   EXPECT_EQ( file.replace( "two\n", 0 ), "" );
   ::umask( before );
   EXPECT_EQ( mode( "state/shutdowns.1" ), 0600u );
   EXPECT_EQ( mode( "state/shutdowns" ), 0600u );
}

TEST_F( JournalFileTest, ALinkInPlaceOfTheFileIsNotFollowed ) {
   work.write( "other", "not ours" );
   work.link( work / "other", "state/shutdowns" );
   EXPECT_EQ( file.append( "one\n" ),
              "cannot open " + work / "state/shutdowns" + ": Too many levels of symbolic links" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
}

TEST_F( JournalFileTest, WhatIsInPlaceOfTheNewFileIsReplaced ) {
   EXPECT_EQ( file.append( "one\n" ), "" );
   work.write( "state/shutdowns.new", "half of a line, from a crash" );
   EXPECT_EQ( file.replace( "two\n", 0 ), "" );
   EXPECT_EQ( work.content( "state/shutdowns" ), "header\ntwo\n" );
   work.write( "other", "not ours" );
   work.link( work / "other", "state/shutdowns.new" );
   EXPECT_EQ( file.replace( "three\n", 0 ), "" );
   EXPECT_EQ( work.content( "state/shutdowns" ), "header\nthree\n" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
}

TEST_F( JournalFileTest, AFileThatAppearsInPlaceOfTheNewOneIsNotWrittenTo ) {
   EXPECT_EQ( file.append( "one\n" ), "" );
   work.write( "other", "not ours" );
   afterUnlink = [ this ] {
      std::filesystem::create_hard_link( work / "other", work / "state/shutdowns.new" );
   };
   EXPECT_EQ( file.replace( "two\n", 0 ),
              "cannot replace " + work / "state/shutdowns" + ": File exists" );
   EXPECT_EQ( work.content( "other" ), "not ours" );
   EXPECT_EQ( work.content( "state/shutdowns" ), "header\none\n" );
}

} // namespace
} // namespace Valend
