// What must hold for the frames of all protocols.
#include "egress/Mutes.h"
#include "tests/derivation/Dissector.h"
#include "tests/derivation/Frames.h"

#include <cstring>
#include <gmock/gmock.h>

namespace Derivation::Test {
namespace {

using ::testing::AnyOf;

class SamplesTest : public ::testing::Test {
 protected:
   // Each sample, and each with a tag.
   static std::vector< Sample > samples() {
      std::vector< Sample > all;
      for ( auto const & sample : Sample::all() ) {
         all.push_back( sample );
         all.push_back( sample );
         all.back().name += ", tagged";
         all.back().frame = tagged( sample.frame );
      }
      return all;
   }
};

TEST_F( SamplesTest, TheGreetingSaysTheSame ) {
   for ( auto const & [ name, frame ] : samples() ) {
      SCOPED_TRACE( name );
      auto const heard = heardOf( frame ), again = heardOf( heard.greeting );
      EXPECT_EQ( again.greeting, heard.greeting );
      EXPECT_EQ( again.goodbye, heard.goodbye );
      EXPECT_EQ( again.speaker, heard.speaker );
      EXPECT_EQ( again.says, heard.says );
   }
}

TEST_F( SamplesTest, TheGoodbyeIsOneOfTheSameSpeaker ) {
   for ( auto const & [ name, frame ] : samples() ) {
      SCOPED_TRACE( name );
      auto const heard = heardOf( frame );
      EXPECT_EQ( heard.whyNot, "" );
      EXPECT_NE( heard.change, "" );
      auto const goodbye = heardOf( heard.goodbye );
      EXPECT_TRUE( goodbye.leaves );
      EXPECT_EQ( goodbye.goodbye, "" );
      EXPECT_EQ( goodbye.greeting, heard.goodbye );
      EXPECT_EQ( goodbye.protocol, heard.protocol );
      EXPECT_EQ( goodbye.speaker, heard.speaker );
   }
}

TEST_F( SamplesTest, TheGoodbyeDiffersInWhatItReplacesOnly ) {
   for ( auto const & [ name, frame ] : samples() ) {
      SCOPED_TRACE( name );
      auto const heard = heardOf( frame );
      EXPECT_EQ( rebuilt( heard ), heard.goodbye );
      EXPECT_NE( heard.greeting, heard.goodbye );
   }
}

// So that muting the speaker of the goodbye mutes the one who greeted.
TEST_F( SamplesTest, TheFilterTakesBothForFramesOfOneSpeaker ) {
   for ( auto const & [ name, frame ] : samples() ) {
      SCOPED_TRACE( name );
      auto const heard = heardOf( frame );
      auto const greeting = Egress::speakerOf( heard.greeting, 1, 2 );
      auto const goodbye = Egress::speakerOf( heard.goodbye, 1, 2 );
      ASSERT_TRUE( greeting && goodbye );
      EXPECT_EQ( Egress::protocolOf( *greeting ), heard.protocol );
      EXPECT_EQ( std::memcmp( &*greeting, &*goodbye, sizeof *greeting ), 0 );
   }
}

// A frame that ends early is refused, up to the bytes that are padding.
TEST_F( SamplesTest, ACutFrameIsRefusedOrHeardWhole ) {
   for ( auto const & [ name, frame ] : samples() ) {
      SCOPED_TRACE( name );
      auto const whole = heardOf( frame );
      bool refused = true;
      for ( std::size_t length = 0; length < frame.size(); ++length ) {
         auto const cut = derive( std::string_view( frame ).substr( 0, length ) );
         if ( cut && std::holds_alternative< Heard >( *cut ) ) {
            auto const & heard = std::get< Heard >( *cut );
            EXPECT_EQ( heard.says, whole.says );
            EXPECT_EQ( whole.goodbye.substr( 0, heard.goodbye.size() ), heard.goodbye );
            refused = false;
         } else {
            EXPECT_TRUE( refused ) << "at " << length << ", but not before";
         }
      }
   }
}

// Any other bytes are heard or refused, and what is heard holds the same.
TEST_F( SamplesTest, AChangedByteBreaksNothing ) {
   for ( auto const & [ name, frame ] : Sample::all() ) {
      SCOPED_TRACE( name );
      for ( std::size_t at = 0; at < frame.size(); ++at ) {
         for ( auto const & byte : { hex( "00" ), hex( "01" ), hex( "7f" ), hex( "ff" ) } ) {
            auto const derived = derive( patched( frame, at, byte ) );
            if ( !derived || std::holds_alternative< Malformed >( *derived ) ) {
               continue;
            }
            auto const & heard = std::get< Heard >( *derived );
            if ( !heard.goodbye.empty() ) {
               EXPECT_EQ( rebuilt( heard ), heard.goodbye );
               EXPECT_TRUE( heardOf( heard.goodbye ).leaves );
            }
         }
      }
   }
}

// An independent dissector finds no fault in any greeting and goodbye. It takes a second to start, so it gets all
// of them at once.
TEST_F( SamplesTest, TheDissectorAcceptsAllFrames ) {
   std::vector< std::string > names, frames;
   for ( auto const & [ name, frame ] : samples() ) {
      auto const heard = heardOf( frame );
      names.insert( names.end(), { name + ", greeting", name + ", goodbye" } );
      frames.insert( frames.end(), { heard.greeting, heard.goodbye } );
   }
   auto const found = complaints( frames );
   ASSERT_EQ( found.size(), frames.size() );
   for ( std::size_t i = 0; i < found.size(); ++i ) {
      // It remarks on what the sender does, and on what the goodbye of EIGRP says.
      EXPECT_THAT( found[ i ], AnyOf( "", "TLV has been deprecated", "Peer Termination" ) )
         << names[ i ];
   }
}

// A check must be able to fail.
TEST_F( SamplesTest, TheDissectorDetectsDamage ) {
   std::vector< std::string > damaged;
   for ( auto const & [ name, frame ] : Sample::all() ) {
      damaged.push_back( frame.substr( 0, frame.size() / 2 ) );
   }
   for ( auto const & line : complaints( damaged ) ) {
      EXPECT_NE( line, "" );
   }
}

} // namespace
} // namespace Derivation::Test
