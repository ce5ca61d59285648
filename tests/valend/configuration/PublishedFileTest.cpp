#include "valend/configuration/PublishedFile.h"

#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Valen::Test::WorkDirectory;
using Lifetime = Publications::Lifetime;
using Message = Publications::Message;

Message message( std::string agent, Lifetime lifetime ) {
   return { std::move( agent ),
            "Ethernet1",
            { std::string( 20, 'a' ), std::string( 14, '\0' ) },
            lifetime,
            7 };
}

class PublishedFileTest : public ::testing::Test {
 protected:
   // What the next run reads.
   std::vector< Message > readAgain() const {
      Conditions other;
      return PublishedFile( directory / "state", other ).read();
   }
   std::vector< std::string > logged;
   Conditions conditions{ [ this ]( LogLevel, auto const & text ) { logged.push_back( text ); } };
   WorkDirectory directory;
};

TEST_F( PublishedFileTest, WithoutAFileNothingIsRestored ) {
   EXPECT_THAT( readAgain(), IsEmpty() );
}

TEST_F( PublishedFileTest, FramesThatAreBoundToAConnectionAreNotSaved ) {
   directory.directory( "state" );
   PublishedFile( directory / "state", conditions )
      .write( { message( "bound", Lifetime::connection ), message( "lldp", Lifetime::kept ) } );
   auto const kept = readAgain();
   ASSERT_EQ( kept.size(), 1u );
   EXPECT_EQ( kept[ 0 ].agent, "lldp" );
   EXPECT_EQ( kept[ 0 ].interface, "Ethernet1" );
   EXPECT_EQ( kept[ 0 ].frames, message( "lldp", Lifetime::kept ).frames );
   EXPECT_EQ( kept[ 0 ].lifetime, Lifetime::kept );
}

TEST_F( PublishedFileTest, WithdrawnFramesAreNotRestored ) {
   directory.directory( "state" );
   PublishedFile file( directory / "state", conditions );
   file.write( { message( "lldp", Lifetime::kept ) } );
   file.write( {} );
   EXPECT_THAT( readAgain(), IsEmpty() );
   EXPECT_FALSE( directory.has( "state/published.damaged" ) ) << "an empty file is valid";
}

TEST_F( PublishedFileTest, ADamagedFileIsRenamed ) {
   directory.write( "state/published", R"([{"agent": "a", "interface": "b", "frames": ["12"]}])" );
   ::testing::internal::CaptureStderr();
   EXPECT_THAT( readAgain(), IsEmpty() );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( "valend: published frames lost: " + directory / "state/published" +
                           " is damaged and was renamed to " + directory / "state/published" +
                           ".damaged: " ) );
   EXPECT_FALSE( directory.has( "state/published" ) );
   EXPECT_TRUE( directory.has( "state/published.damaged" ) );
}

TEST_F( PublishedFileTest, AWriteErrorIsAConditionUntilAWriteSucceeds ) {
   PublishedFile file( directory / "state", conditions );
   file.write( { message( "lldp", Lifetime::kept ) } );
   file.write( { message( "radv", Lifetime::kept ) } );
   auto const error = "published-frames: published frames would be lost on restart: cannot write " +
                      directory / "state/published" + ".new: No such file or directory";
   EXPECT_TRUE( conditions.isRaised( "published-frames" ) );
   EXPECT_THAT( logged, ElementsAre( error ) ) << "one error is logged once";

   directory.directory( "state" );
   file.write( { message( "radv", Lifetime::kept ) } );
   EXPECT_FALSE( conditions.isRaised( "published-frames" ) );
   EXPECT_THAT( logged, ElementsAre( error, "published-frames: recovered" ) );
   EXPECT_EQ( readAgain().size(), 1u );
}

TEST_F( PublishedFileTest, AFileThatIsUpToDateIsNotWritten ) {
   directory.directory( "state" );
   PublishedFile file( directory / "state", conditions );
   file.write( { message( "lldp", Lifetime::kept ) } );
   directory.remove( "state/published" );
   file.write( { message( "lldp", Lifetime::kept ), message( "bound", Lifetime::connection ) } );
   EXPECT_FALSE( directory.has( "state/published" ) );
}

TEST_F( PublishedFileTest, WithoutADirectoryNothingIsSaved ) {
   PublishedFile file( "", conditions );
   file.write( { message( "lldp", Lifetime::kept ) } );
   EXPECT_THAT( logged, IsEmpty() );
   EXPECT_THAT( file.read(), IsEmpty() );
}

} // namespace
} // namespace Valend
