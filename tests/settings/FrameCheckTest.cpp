#include "settings/FrameCheck.h"

#include "settings/ConfigReader.h"
#include "settings/Hex.h"
#include "settings/Limits.h"

#include <gmock/gmock.h>

namespace Settings {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// An LLDPDU with this time to live, in hexadecimal, and a part of one.
std::string lldp( char const * ttl ) {
   return std::string( "0180c200000e02000000000188cc02070402000000000104050565746831" ) + "0602" +
          ttl + "0000";
}
constexpr char const * malformed = "0180c200000e02000000000188cc020704020000000001";
constexpr char const * unknown = "ffffffffffff02000000000188b5676f6f64627965";
constexpr char const * alive =
   "lldp, chassis 02:00:00:00:00:01, port eth1: says ttl 120; not a goodbye";

std::string doubt( std::string const & hex ) {
   return doubtAbout( frameFromHex( hex ) );
}

TEST( FrameCheckTest, AGoodbyeAndAnUnknownFrameRaiseNoDoubt ) {
   EXPECT_EQ( doubt( lldp( "0000" ) ), "" );
   EXPECT_EQ( doubt( unknown ), "" );
}

TEST( FrameCheckTest, AFrameThatIsMalformedOrNoGoodbyeRaisesADoubt ) {
   EXPECT_EQ( doubt( lldp( "0078" ) ), alive );
   EXPECT_EQ( doubt( malformed ), "lldp, malformed: it ends too early" );
}

class FrameCheckOfConfigTest : public ::testing::Test {
 protected:
   static ConfigResult read( std::string const & frames ) {
      return parseConfig( "interfaces: [{name: et1}]\n"
                          "agents:\n"
                          "  - name: lldp\n"
                          "    messages:\n"
                          "      et1:\n" +
                             frames,
                          "valen.yaml" );
   }
   static std::vector< std::string > warnings( std::string const & frames ) {
      std::vector< std::string > texts;
      auto const result = read( frames );
      EXPECT_THAT( result.errors, IsEmpty() );
      for ( auto const & warning : result.warnings ) {
         texts.push_back( warning.message() );
      }
      return texts;
   }
};

TEST_F( FrameCheckOfConfigTest, AWarningHasThePlaceOfItsFrame ) {
   EXPECT_THAT(
      warnings( "        - " + lldp( "0000" ) + "\n        - " + lldp( "0078" ) + "\n        - " +
                malformed + "\n        - " + unknown + "\n" ),
      ElementsAre( std::string( "valen.yaml:7:11: the frame is probably wrong: " ) + alive,
                   "valen.yaml:8:11: the frame is probably wrong: lldp, malformed: it "
                   "ends too early" ) );
}

TEST_F( FrameCheckOfConfigTest, AnAliasIsNoOtherFrame ) {
   EXPECT_THAT( warnings( "        - &a " + lldp( "0078" ) + "\n        - *a\n        - *a\n" ),
                SizeIs( 1 ) );
}

TEST_F( FrameCheckOfConfigTest, ThoseBeyondTheLimitAreCounted ) {
   std::string frames;
   for ( std::size_t i = 0; i < maxErrors + 3; ++i ) {
      frames += "        - " + lldp( "0078" ) + "\n";
   }
   auto const texts = warnings( frames );
   ASSERT_THAT( texts, SizeIs( maxErrors + 1 ) );
   EXPECT_THAT( texts.back(), EndsWith( "and 3 more warnings" ) );
}

} // namespace
} // namespace Settings
