#include "settings/FrameText.h"

#include "settings/FrameFile.h"
#include "tests/settings/CaptureFile.h"
#include "tests/support/WorkDirectory.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Settings::Test {
namespace {

using ::testing::ElementsAre;

std::string frame( char last ) {
   return std::string( 17, 'h' ) + last; // not a multiple of four, so that pcapng must pad
}

class FrameTextTest : public ::testing::Test {
 protected:
   Frames frames( std::string const & text ) const { return framesOf( text, directory / "" ); }
   // The error of `text`, without the directory of a file.
   std::string errorOf( std::string const & text ) const {
      try {
         return std::to_string( frames( text ).size() ) + " frames";
      } catch ( FrameError const & e ) {
         std::string error = e.what();
         return error.starts_with( directory / "" ) ? error.substr( ( directory / "" ).size() )
                                                    : error;
      }
   }

   Valen::Test::WorkDirectory directory;
};

TEST_F( FrameTextTest, TextWithoutAPrefixIsHexadecimal ) {
   EXPECT_THAT( frames( "0180c200000e 02:00:00:00:00:01 88cc" ),
                ElementsAre( std::string( "\x01\x80\xc2\0\0\x0e\x02\0\0\0\0\x01\x88\xcc", 14 ) ) );
   EXPECT_EQ( errorOf( "0180" ), "frame of 2 bytes; expected at least 14, an Ethernet header" );
}

TEST_F( FrameTextTest, Base64IsReadWithAnyPadding ) {
   EXPECT_EQ( bytesFromBase64( "" ), "" );
   EXPECT_EQ( bytesFromBase64( "Zg==" ), "f" );
   EXPECT_EQ( bytesFromBase64( "Zm8=" ), "fo" );
   EXPECT_EQ( bytesFromBase64( "Zm9v" ), "foo" );
   EXPECT_EQ( bytesFromBase64( "+/+/" ), "\xfb\xff\xbf" );
   EXPECT_THAT( frames( "base64:MDEyMzQ1Njc4OTAx\n  MjM0" ), ElementsAre( "012345678901234" ) );
}

TEST_F( FrameTextTest, InvalidBase64IsRejected ) {
   auto const bad = " after \"base64:\" is not base64";
   EXPECT_EQ( errorOf( "base64:Zm9_" ), std::string( "character 4" ) + bad );
   EXPECT_EQ( errorOf( "base64:Zg==Zg==" ), std::string( "character 5" ) + bad );
   EXPECT_EQ( errorOf( "base64:Zm9vY" ),
              "base64 text of 5 characters, 0 of them \"=\"; "
              "expected groups of four, the last with at most two \"=\"" );
   EXPECT_EQ( errorOf( "base64:Z===" ),
              "base64 text of 4 characters, 3 of them \"=\"; "
              "expected groups of four, the last with at most two \"=\"" );
   EXPECT_EQ( errorOf( "base64:Zm9v" ),
              "frame of 3 bytes; expected at least 14, an Ethernet header" );
   EXPECT_EQ( errorOf( "base64:Zg==" ),
              "frame of 1 byte; expected at least 14, an Ethernet header" );
   EXPECT_EQ( errorOf( "base64:Z" ), "base64 text of 1 character, 0 of them \"=\"; "
                                     "expected groups of four, the last with at most two \"=\"" );
}

TEST_F( FrameTextTest, FramesOfACaptureFileComeInTheOrderOfTheirNumbers ) {
   std::vector< std::string > const all{ frame( '1' ), frame( '2' ), frame( '3' ), frame( '4' ) };
   directory.write( "a.pcap", pcapFile( all ) );
   directory.write( "a#1.pcapng", pcapngFile( all ) );
   for ( std::string const text : { "pcap:a.pcap", "pcapng:a#1.pcapng", "pcapng:a.pcap" } ) {
      EXPECT_THAT( frames( text + "#1" ), ElementsAre( frame( '1' ) ) ) << text;
      EXPECT_THAT( frames( text + "#4,1-3" ),
                   ElementsAre( frame( '4' ), frame( '1' ), frame( '2' ), frame( '3' ) ) );
      EXPECT_THAT( frames( text + "#2,2" ), ElementsAre( frame( '2' ), frame( '2' ) ) );
   }
   EXPECT_THAT( frames( "pcap:" + directory / "a.pcap#3" ), ElementsAre( frame( '3' ) ) );
}

TEST_F( FrameTextTest, InvalidFrameNumbersAreRejected ) {
   directory.write( "a.pcap", pcapFile( { frame( '1' ), frame( '2' ) } ) );
   for ( std::string const bad : { "", "0", "1,", "3-1", "1-", "-1", "x", "1 2", "1,0-2", "1-2-3",
                                   "99999999999999999999999" } ) {
      EXPECT_EQ( errorOf( "pcap:a.pcap#" + bad ),
                 "a.pcap: frame numbers \"" + bad +
                    "\"; expected numbers from 1 and ranges, such as \"1,3-5\"" );
   }
   EXPECT_EQ( errorOf( "pcap:a.pcap" ),
              "expected a file and frame numbers, such as \"pcap:FILE#1,3-5\"" );
   EXPECT_EQ( errorOf( "pcap:#1" ),
              "expected a file and frame numbers, such as \"pcap:FILE#1,3-5\"" );
   EXPECT_EQ( errorOf( "pcap:a.pcap#2-3" ), "a.pcap: no frame 3; the file has 2 frames" );
   for ( auto const * many : { "1-10001", "1,1-10000", "1-18446744073709551615" } ) {
      EXPECT_EQ( errorOf( std::string( "pcap:a.pcap#" ) + many ),
                 "a.pcap: more than 10000 frames, which is the limit" );
   }
}

TEST_F( FrameTextTest, CapturesWithoutCompleteEthernetFramesAreRejected ) {
   directory.write( "ip.pcap", pcapFile( { frame( '1' ) }, 101 ) );
   directory.write( "cut.pcap", pcapFile( { frame( '1' ) }, 1, 5 ) );
   directory.write( "short.pcap", pcapFile( { frame( '1' ), "x" } ) );
   EXPECT_EQ( errorOf( "pcap:ip.pcap#1" ), "ip.pcap: link type RAW; expected EN10MB, Ethernet" );
   EXPECT_EQ( errorOf( "pcap:cut.pcap#1" ),
              "cut.pcap: frame 1 has only 18 of its 23 bytes; expected a complete capture" );
   EXPECT_EQ( errorOf( "pcap:short.pcap#1" ), "1 frames" );
   EXPECT_EQ( errorOf( "pcap:short.pcap#2" ),
              "short.pcap: frame 2 has 1 byte; expected at least 14, an Ethernet header" );
}

TEST_F( FrameTextTest, FilesThatAreNotCapturesAreRejected ) {
   auto const whole = pcapFile( { frame( '1' ) } );
   directory.write( "text", "hello, hello, hello, hello" );
   directory.write( "half.pcap", whole.substr( 0, whole.size() - 3 ) );
   ASSERT_EQ( ::mkfifo( ( directory / "pipe" ).c_str(), 0600 ), 0 );
   EXPECT_EQ( errorOf( "pcap:none#1" ),
              "none: cannot open: No such file or directory; expected a pcap or "
              "pcapng file" );
   EXPECT_EQ( errorOf( "pcap:pipe#1" ),
              "pipe: not a regular file; expected a pcap or pcapng file" );
   EXPECT_EQ( errorOf( "pcap:.#1" ), ".: not a regular file; expected a pcap or pcapng file" );
   EXPECT_THAT( errorOf( "pcap:text#1" ),
                ::testing::MatchesRegex( "text: .+; expected a pcap or pcapng file" ) );
   EXPECT_THAT( errorOf( "pcap:half.pcap#1" ),
                ::testing::MatchesRegex( "half.pcap: .+; expected a pcap or pcapng file" ) );
}

TEST_F( FrameTextTest, AllFramesOfACaptureFileAreRead ) {
   for ( auto const & content : { pcapFile( { frame( '1' ), frame( '2' ) } ),
                                  pcapngFile( { frame( '1' ), frame( '2' ) } ) } ) {
      directory.write( "all", content );
      EXPECT_THAT( allFramesOf( directory / "all" ), ElementsAre( frame( '1' ), frame( '2' ) ) );
   }
   directory.write( "cut", pcapFile( { frame( '1' ) } ).substr( 0, 45 ) );
   EXPECT_THROW( allFramesOf( directory / "cut" ), FrameError );
   directory.write( "many", pcapFile( std::vector( maxFramesOfText, frame( '1' ) ) ) );
   EXPECT_EQ( allFramesOf( directory / "many" ).size(), maxFramesOfText );
   directory.write( "more", pcapFile( std::vector( maxFramesOfText + 1, frame( '1' ) ) ) );
   EXPECT_THROW( allFramesOf( directory / "more" ), FrameError );
}

} // namespace
} // namespace Settings::Test
