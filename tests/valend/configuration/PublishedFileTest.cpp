#include "valend/configuration/PublishedFile.h"

#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using Test::WorkDirectory;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Lifetime = Publications::Lifetime;
using Message = Publications::Message;

Message message( std::string agent, Lifetime lifetime ) {
   return { std::move( agent ),
            "Ethernet1",
            { std::string( 20, 'a' ), std::string( 14, '\0' ) },
            lifetime,
            7 };
}

std::string const lost = "valend: published frames would not outlive the agent: ";

class KeptFramesTest : public ::testing::Test {
 protected:
   std::vector< Message > readAnew() const { return PublishedFile( folder / "state" ).read(); }

   WorkDirectory folder;
};

TEST_F( KeptFramesTest, NothingIsKeptAtFirst ) {
   EXPECT_THAT( readAnew(), IsEmpty() );
}

TEST_F( KeptFramesTest, WhatIsBoundToAConnectionIsNotKept ) {
   folder.folder( "state" );
   PublishedFile( folder / "state" )
      .write( { message( "bound", Lifetime::connection ), message( "lldp", Lifetime::kept ) } );
   auto const kept = readAnew();
   ASSERT_EQ( kept.size(), 1u );
   EXPECT_EQ( kept[ 0 ].agent, "lldp" );
   EXPECT_EQ( kept[ 0 ].interface, "Ethernet1" );
   EXPECT_EQ( kept[ 0 ].frames, message( "lldp", Lifetime::kept ).frames );
   EXPECT_EQ( kept[ 0 ].lifetime, Lifetime::kept );
}

TEST_F( KeptFramesTest, WhatIsWithdrawnIsNotKeptAnyMore ) {
   folder.folder( "state" );
   PublishedFile frames( folder / "state" );
   frames.write( { message( "lldp", Lifetime::kept ) } );
   frames.write( {} );
   EXPECT_THAT( readAnew(), IsEmpty() );
   EXPECT_FALSE( folder.has( "state/published.damaged" ) ) << "an empty file is in order";
}

TEST_F( KeptFramesTest, AFileThatMakesNoSenseIsSetAside ) {
   folder.write( "state/published", R"([{"agent": "a", "interface": "b", "frames": ["12"]}])" );
   ::testing::internal::CaptureStderr();
   EXPECT_THAT( readAnew(), IsEmpty() );
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(),
                HasSubstr( "valend: the published frames are lost: " + folder / "state/published" +
                           ".damaged: " ) );
   EXPECT_FALSE( folder.has( "state/published" ) );
   EXPECT_TRUE( folder.has( "state/published.damaged" ) );
}

TEST_F( KeptFramesTest, TroubleIsSaidWhenItComesAndWhenItGoes ) {
   PublishedFile frames( folder / "state" );
   ::testing::internal::CaptureStderr();
   frames.write( { message( "lldp", Lifetime::kept ) } );
   frames.write( { message( "radv", Lifetime::kept ) } );
   auto const trouble = folder / "state/published" + ".new: No such file or directory";
   EXPECT_EQ( frames.trouble(), trouble );
   EXPECT_EQ( ::testing::internal::GetCapturedStderr(), lost + trouble + "\n" );

   folder.folder( "state" );
   ::testing::internal::CaptureStderr();
   frames.write( { message( "radv", Lifetime::kept ) } );
   EXPECT_EQ( frames.trouble(), "" );
   EXPECT_EQ( ::testing::internal::GetCapturedStderr(),
              "valend: published frames are written down again\n" );
   EXPECT_EQ( readAnew().size(), 1u );
}

TEST_F( KeptFramesTest, WithoutADirectoryNothingIsKept ) {
   PublishedFile frames( "" );
   frames.write( { message( "lldp", Lifetime::kept ) } );
   EXPECT_EQ( frames.trouble(), "" );
   EXPECT_THAT( frames.read(), IsEmpty() );
}

} // namespace
} // namespace Valend
