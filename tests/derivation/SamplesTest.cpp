// What must hold for the frames of all protocols.
#include "egress/Mutes.h"
#include "tests/derivation/Frames.h"
#include "tests/support/WorkDirectory.h"

#include <cstdlib>
#include <cstring>
#include <sstream>

namespace Derivation::Test {
namespace {

using Egress::Speaker;

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

   // What the dissector complains about, a line for each frame; empty for valid frames.
   static std::vector< std::string > complaints( std::vector< std::string > const & frames ) {
      auto const little = []( std::size_t value ) {
         auto const big = number( value, 4 );
         return std::string( big.rbegin(), big.rend() );
      };
      constexpr std::size_t ethernetLink = 1, snapshotBytes = 65535;
      auto content =
         hex( "d4c3b2a1 0200 0400 .... ...." ) + little( snapshotBytes ) + little( ethernetLink );
      for ( auto const & frame : frames ) {
         content +=
            little( 0 ) + little( 0 ) + little( frame.size() ) + little( frame.size() ) + frame;
      }
      Valen::Test::WorkDirectory work;
      work.write( "frames.pcap", content );
      auto const command =
         "tshark -n -r " + work / "frames.pcap" +
         " -o eth.padding:Any -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE"
         " -T fields -E separator=/s -e _ws.expert.message -e _ws.malformed >" +
         work / "lines" + " 2>" + work / "errors";
      EXPECT_EQ( std::system( command.c_str() ), 0 ) << work.content( "errors" );
      std::vector< std::string > lines;
      std::istringstream all( work.content( "lines" ) );
      for ( std::string line; std::getline( all, line ); ) {
         lines.push_back( line.erase( line.find_last_not_of( ' ' ) + 1 ) );
      }
      return lines;
   }
};

// The greeting with what the goodbye replaces taken from it.
std::string rebuilt( Heard const & heard ) {
   std::string frame;
   std::size_t from = 0, to = 0;
   for ( auto const & [ at, bytes, by ] : heard.replaced ) {
      EXPECT_GE( at, from );
      to += at - from;
      frame += heard.greeting.substr( from, at - from ) + heard.goodbye.substr( to, by );
      to += by;
      from = at + bytes;
   }
   return frame + heard.greeting.substr( from );
}

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
      // It remarks on what a goodbye of EIGRP says.
      bool const isRemark = names[ i ].starts_with( "eigrp" ) && names[ i ].ends_with( "goodbye" );
      EXPECT_EQ( found[ i ], isRemark ? "Peer Termination" : "" ) << names[ i ];
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
