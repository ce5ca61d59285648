#include "valend/configuration/PublishedFile.h"

#include "tests/support/SteppedClock.h"
#include "tests/support/WorkDirectory.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Valen::Test::WorkDirectory;

PublishedFrames::Entry entry( std::string agent, std::string interface = "Ethernet1" ) {
   return { std::move( agent ),
            std::move( interface ),
            { std::string( 20, 'a' ), std::string( 14, '\0' ) } };
}

class PublishedFileTest : public ::testing::Test {
 protected:
   PublishedFileTest() { make(); }

   void make() { file.emplace( *state, conditions, *worker, clock.scheduler() ); }
   // The next start, with a file in place of the directory until it is removed.
   void makeWithoutDirectory() {
      file.reset();
      state.reset();
      directory.remove( "state" );
      directory.write( "state", "a file" );
      state.emplace( directory / "state", []( auto const & ) {} );
      make();
   }
   // Turns the loop until all that was saved before is on the disk, or is not.
   bool saved() {
      std::optional< bool > result;
      file->whenSaved( [ & ]( bool each ) { result = each; } );
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 10 );
      while ( !result && std::chrono::steady_clock::now() < end ) {
         loop.turn( std::chrono::milliseconds( 10 ) );
      }
      return result.value_or( false );
   }
   bool save( PublishedFrames::Entry const & change ) {
      file->save( change );
      return saved();
   }
   // The agents and interfaces that the next run reads.
   std::vector< std::string > readAgain() {
      std::vector< std::string > names;
      PublishedFile next( *state, conditions, *worker, clock.scheduler() );
      for ( auto const & each : next.read() ) {
         EXPECT_EQ( each.frames, entry( "any" ).frames );
         names.push_back( each.agent + "/" + each.interface );
      }
      return names;
   }
   std::size_t bytes() const { return directory.content( "state/published" ).size(); }

   std::vector< std::string > logged;
   Conditions conditions{ [ this ]( LogLevel, auto const & text ) { logged.push_back( text ); } };
   WorkDirectory directory;
   std::optional< StateDirectory > state{ std::in_place, directory / "state" };
   Valen::Test::SteppedClock clock;
   Valen::Linux::EventLoop loop{ clock.scheduler() };
   std::optional< Valen::Linux::Worker > worker{ std::in_place, loop, "test" };
   std::optional< PublishedFile > file;
};

TEST_F( PublishedFileTest, WithoutAFileNothingIsRestored ) {
   EXPECT_THAT( readAgain(), IsEmpty() );
}

TEST_F( PublishedFileTest, WhatIsSavedIsRestored ) {
   EXPECT_TRUE( save( entry( "lldp" ) ) );
   EXPECT_TRUE( save( entry( "lldp", "Ethernet \"2\"\n" ) ) );
   EXPECT_TRUE( save( entry( "bgp" ) ) );
   EXPECT_THAT( readAgain(),
                ElementsAre( "bgp/Ethernet1", "lldp/Ethernet \"2\"\n", "lldp/Ethernet1" ) );
   struct stat status {};
   ASSERT_EQ( ::stat( ( directory / "state/published" ).c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777, 0600u );
}

TEST_F( PublishedFileTest, WithdrawnFramesAreNotRestored ) {
   save( entry( "lldp" ) );
   save( entry( "bgp" ) );
   EXPECT_TRUE( save( { "lldp", "Ethernet1", {} } ) );
   EXPECT_THAT( readAgain(), ElementsAre( "bgp/Ethernet1" ) );
   save( { "bgp", "Ethernet1", {} } );
   EXPECT_THAT( readAgain(), IsEmpty() );
   EXPECT_FALSE( directory.has( "state/published.damaged" ) );
}

TEST_F( PublishedFileTest, AChangeIsAppendedHoweverMuchIsThere ) {
   save( { "bulk", "Ethernet1", Settings::FrameList( 100, std::string( 9000, 'x' ) ) } );
   auto const before = bytes();
   struct stat first {};
   ::stat( ( directory / "state/published" ).c_str(), &first );
   save( entry( "lldp" ) );
   struct stat second {};
   ::stat( ( directory / "state/published" ).c_str(), &second );
   EXPECT_GT( before, 1'800'000u );
   EXPECT_LT( bytes() - before, 200u );
   EXPECT_EQ( first.st_ino, second.st_ino ) << "the file was rewritten";
}

TEST_F( PublishedFileTest, AFileThatIsMostlyOutdatedIsRewritten ) {
   std::size_t largest = 0;
   for ( char i = 'a'; i < 'z'; ++i ) {
      save( { "bulk", "Ethernet1", Settings::FrameList( 10, std::string( 9000, i ) ) } );
      largest = std::max( largest, bytes() );
   }
   EXPECT_LT( largest, 3 * 180'000 + PublishedFrames::slack );
   save( { "bulk", "Ethernet1", {} } );
   save( entry( "lldp" ) );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1" ) );
}

TEST_F( PublishedFileTest, ManyChangesWhileTheDiskIsBusyAreWrittenTogether ) {
   std::promise< void > goesOn;
   worker->run( [ &, gate = goesOn.get_future().share() ]() -> Valen::Linux::Worker::Work {
      gate.wait();
      return nullptr;
   } );
   int answers = 0;
   for ( int i = 0; i < 1000; ++i ) {
      file->save( entry( "a" + std::to_string( i ) ) );
      file->whenSaved( [ & ]( bool each ) { answers += each; } );
   }
   loop.turn( std::chrono::milliseconds( 1 ) );
   EXPECT_EQ( answers, 0 ) << "an answer can be relied on";
   goesOn.set_value();
   EXPECT_TRUE( saved() );
   EXPECT_EQ( answers, 1000 );
   EXPECT_EQ( readAgain().size(), 1000u );
}

TEST_F( PublishedFileTest, WhatIsNotWrittenAtTheEndIsWrittenThen ) {
   for ( int i = 0; i < 10; ++i ) {
      file->save( entry( "a" + std::to_string( i ) ) );
   }
   file.reset();
   worker.reset();
   worker.emplace( loop, "test" );
   EXPECT_EQ( readAgain().size(), 10u );
}

TEST_F( PublishedFileTest, AnIncompleteLastLineWasNotAnsweredAndIsIgnored ) {
   save( entry( "lldp" ) );
   directory.write( "state/published", directory.content( "state/published" ) +
                                          R"({"agent":"bgp","interface":"Ethe)" );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1" ) );
   make();
   file->read();
   EXPECT_TRUE( save( entry( "radv" ) ) );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1", "radv/Ethernet1" ) );
   EXPECT_FALSE( directory.has( "state/published.damaged" ) );
}

TEST_F( PublishedFileTest, TheListOfAnEarlierVersionIsRead ) {
   auto const frames =
      R"("6161616161616161616161616161616161616161", "0000000000000000000000000000")";
   directory.write( "state/published", std::string( R"([ {"agent": "lldp", "frames": [)" ) +
                                          frames + R"(], "interface": "Ethernet1"} ])" );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1" ) );
   make();
   file->read();
   EXPECT_TRUE( save( entry( "radv" ) ) );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1", "radv/Ethernet1" ) );
}

TEST_F( PublishedFileTest, ADamagedFileIsRenamedAndWhatIsIntactIsKept ) {
   save( entry( "lldp" ) );
   auto const intact = directory.content( "state/published" );
   directory.write( "state/published", R"({"agent": "a", "interface": "b", "frames": ["12"]})"
                                       "\n" +
                                          intact );
   make();
   ::testing::internal::CaptureStderr();
   EXPECT_EQ( file->read().size(), 1u );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( "valend: published frames lost: " + directory / "state/published" +
                           " is damaged and was renamed to " + directory / "state/published" +
                           ".damaged: " ) );
   EXPECT_TRUE( directory.has( "state/published.damaged" ) );
   EXPECT_TRUE( saved() );
   EXPECT_EQ( directory.content( "state/published" ), intact );
}

TEST_F( PublishedFileTest, AWriteErrorIsToldAndACondition ) {
   directory.directory( "state/published.new" );
   EXPECT_FALSE( save( entry( "lldp" ) ) );
   EXPECT_FALSE( save( entry( "radv" ) ) );
   auto const error = "published-frames: published frames would be lost on restart: cannot write " +
                      directory / "state/published" + ".new: File exists";
   EXPECT_TRUE( conditions.isRaised( "published-frames" ) );
   EXPECT_THAT( logged, ElementsAre( error ) ) << "one error is logged once";

   directory.remove( "state/published.new" );
   EXPECT_TRUE( save( entry( "bgp" ) ) );
   EXPECT_THAT( logged, ElementsAre( error, "published-frames: recovered" ) );
   EXPECT_EQ( readAgain().size(), 3u );
}

TEST_F( PublishedFileTest, ADirectoryThatCannotBeOpenedIsTriedAgainLater ) {
   makeWithoutDirectory();
   EXPECT_FALSE( save( entry( "lldp" ) ) );
   EXPECT_THAT( logged,
                ElementsAre( "published-frames: published frames would be lost on restart: cannot "
                             "open " +
                             directory / "state" + ": Not a directory" ) );
   directory.remove( "state" );
   clock.advance( PublishedFile::retryPeriod );
   EXPECT_TRUE( saved() );
   EXPECT_FALSE( conditions.isRaised( "published-frames" ) );
   EXPECT_THAT( readAgain(), ElementsAre( "lldp/Ethernet1" ) );
}

// Neither an appended line nor a file that is rewritten.
TEST_F( PublishedFileTest, AReplacedPathOfTheDirectoryHasNoEffect ) {
   EXPECT_TRUE( save( entry( "lldp" ) ) );
   directory.directory( "trap" );
   directory.write( "trap/published", "" );
   std::filesystem::rename( directory / "state", directory / "moved" );
   directory.link( directory / "trap", "state" );
   EXPECT_TRUE( save( entry( "bgp" ) ) );
   directory.remove( "moved/published" );
   EXPECT_TRUE( save( entry( "radv" ) ) );
   EXPECT_THAT( readAgain(), ElementsAre( "bgp/Ethernet1", "lldp/Ethernet1", "radv/Ethernet1" ) );
   EXPECT_TRUE( directory.has( "moved/published" ) );
   EXPECT_EQ( directory.content( "trap/published" ), "" );
}

TEST_F( PublishedFileTest, ASymbolicLinkIsNeitherReadNorWritten ) {
   EXPECT_TRUE( save( entry( "lldp" ) ) );
   std::filesystem::rename( directory / "state/published", directory / "other" );
   directory.link( directory / "other", "state/published" );
   auto const before = directory.content( "other" );
   EXPECT_TRUE( save( entry( "bgp" ) ) );
   EXPECT_EQ( directory.content( "other" ), before );
   EXPECT_FALSE( std::filesystem::is_symlink( directory / "state/published" ) );

   directory.remove( "state/published" );
   directory.link( directory / "other", "state/published" );
   ::testing::internal::CaptureStderr();
   EXPECT_THAT( readAgain(), IsEmpty() );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( ": Too many levels of symbolic links" ) );
}

TEST_F( PublishedFileTest, WhatTheFileHasIsNotWritten ) {
   save( entry( "lldp" ) );
   directory.remove( "state/published" );
   EXPECT_TRUE( save( entry( "lldp" ) ) );
   EXPECT_FALSE( directory.has( "state/published" ) );
   EXPECT_TRUE( save( entry( "radv" ) ) );
   EXPECT_EQ( readAgain().size(), 2u ) << "a file that was removed is rewritten";
}

TEST_F( PublishedFileTest, WithoutADirectoryNothingIsSaved ) {
   file.reset();
   state.emplace( "" );
   make();
   EXPECT_FALSE( save( entry( "lldp" ) ) );
   EXPECT_THAT( logged, IsEmpty() );
   EXPECT_THAT( file->read(), IsEmpty() );
}

} // namespace
} // namespace Valend
