// Every frame that a document or a sample configuration shows, read by others: a dissector, and for LLDP
// the lldpd of a neighbor.
#include "settings/ConfigFiles.h"
#include "settings/FrameText.h"
#include "tests/goodbye/FrameTest.h"
#include "tests/goodbye/Lldpd.h"
#include "tests/system/RunningDaemon.h"

#include "goodbye/Pcap.h"

#include <gmock/gmock.h>
#include <map>

namespace Valen::Test {
namespace {

using ::testing::IsSupersetOf;
using Frames = std::vector< std::string >;

// Collects the frames of a text: words that are hexadecimal digits, with colons perhaps, as long as they
// follow each other, and base64. A frame goes on in the next line if that is indented.
class FrameCollector {
 public:
   explicit FrameCollector( std::string const & text ) {
      std::istringstream lines( text );
      for ( std::string line; std::getline( lines, line ); ) {
         if ( !line.starts_with( ' ' ) && !line.starts_with( "# " ) ) {
            endFrame();
         }
         addLine( line );
      }
      endFrame();
   }
   Frames const & frames() const { return frames_; }

 private:
   void addLine( std::string line ) {
      if ( line.starts_with( "#" ) ) {
         line.front() = ' '; // a sample that is not active yet
      }
      for ( char const mark : { '"', '`', '[', ']' } ) {
         for ( auto at = line.find( mark ); at != std::string::npos; at = line.find( mark ) ) {
            line.replace( at, 1, std::string( " | " ) );
         }
      }
      std::istringstream words( line );
      for ( std::string word; words >> word; ) {
         addWord( word );
      }
   }

   void addWord( std::string word ) {
      if ( word.starts_with( "base64:" ) ) {
         endFrame();
         frames_.push_back( Settings::framesOf( word, "" ).front() );
         return;
      }
      std::erase( word, ':' );
      bool const isHex = word.find_first_not_of( "0123456789abcdefABCDEF" ) == std::string::npos;
      if ( isHex && !word.empty() ) {
         digits_ += word;
      } else {
         endFrame();
      }
   }

   void endFrame() {
      constexpr std::size_t header = 14;
      if ( digits_.size() >= 2 * header ) {
         frames_.push_back( Settings::framesOf( digits_, "" ).front() );
      }
      digits_.clear();
   }

   std::string digits_;
   Frames frames_;
};

// Each document, and at least how many frames it shows.
std::map< std::string, std::size_t > const documents{
   { "README.md", 1 },           { "docs/api.md", 1 },           { "docs/configuration.md", 2 },
   { "docs/goodbyes.md", 13 },   { "docs/man/valen.yaml.5", 1 }, { "examples/run.yaml", 8 },
   { "examples/valen.yaml", 3 }, { "packaging/valen.yaml", 1 } };

Frames framesIn( std::string const & document ) {
   return FrameCollector( contentOf( SOURCES "/" + document ) ).frames();
}

bool isLldp( std::string const & frame ) {
   return frame.substr( 12, 2 ) == "\x88\xcc";
}

class SamplesTest : public FrameTest {};

TEST_F( SamplesTest, EachFrameIsValidForTheDissector ) {
   for ( auto const & [ document, count ] : documents ) {
      auto const frames = framesIn( document );
      EXPECT_GE( frames.size(), count ) << document;
      auto const found = complaints( Goodbye::pcapFile( frames, {} ) );
      ASSERT_EQ( found.size(), frames.size() );
      for ( std::size_t i = 0; i < frames.size(); ++i ) {
         EXPECT_EQ( found[ i ], "" ) << document << ": " << Settings::toHex( frames[ i ] );
      }
   }
}

// The test would not see a frame that it does not recognize.
TEST_F( SamplesTest, TheFramesOfTheConfigurationsAreAllSeen ) {
   for ( std::string const document : { "examples/run.yaml", "examples/valen.yaml" } ) {
      auto const read = Settings::readConfig( SOURCES "/" + document );
      EXPECT_TRUE( read.errors.empty() );
      Frames configured;
      for ( auto const & [ agent, interfaces ] : read.config.agents ) {
         for ( auto const & [ interface, frames ] : interfaces ) {
            configured.insert( configured.end(), frames.begin(), frames.end() );
         }
      }
      EXPECT_THAT( framesIn( document ), ::testing::UnorderedElementsAreArray( configured ) );
   }
}

TEST_F( SamplesTest, AFrameThatIsNotValidIsNoticed ) {
   FrameCollector const collector( "  - \"01:80:c2:00:00:0e 020000000001 88cc\n      0000\"" );
   ASSERT_EQ( collector.frames().size(), 1u );
   EXPECT_NE( complaints( Goodbye::pcapFile( collector.frames(), {} ) ).at( 0 ), "" );
}

// The neighbor's lldpd, which first learns each port from a frame with the same ids and a time to live.
class SamplesForLldpdTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      ASSERT_NO_FATAL_FAILURE( findLldpd() );
      other_.emplace( *neighbors_, *work_ / "other" );
      ASSERT_TRUE( eventually( [ & ] { return other_->knows( "far1" ); } ) ) << other_->err();
   }

   void send( std::string const & frame ) const {
      auto const opened = Linux::NetNsDirectories().open( machine_->name() );
      Linux::NetNsScope const inside( opened );
      auto const fd = Linux::requireFd( ::socket( AF_PACKET, SOCK_RAW, 0 ), "socket" );
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_ifindex = static_cast< int >( ::if_nametoindex( "et1" ) );
      ASSERT_EQ( ::sendto( fd.get(), frame.data(), frame.size(), 0,
                           reinterpret_cast< sockaddr * >( &address ), sizeof address ),
                 static_cast< ssize_t >( frame.size() ) );
   }

   // The same announcement, to live for two minutes.
   static std::string announcement( std::string frame ) {
      std::string const goodbye( "\x06\x02\x00\x00", 4 );
      auto const at = frame.rfind( goodbye );
      EXPECT_NE( at, std::string::npos ) << "its time to live is not 0";
      return frame.replace( at, goodbye.size(), std::string( "\x06\x02\x00\x78", 4 ) );
   }

   std::optional< Lldpd > other_;
};

TEST_F( SamplesForLldpdTest, TheNeighborDropsThePortOfEachLldpFrame ) {
   std::size_t tried = 0;
   for ( auto const & [ document, count ] : documents ) {
      for ( auto const & frame : framesIn( document ) ) {
         if ( !isLldp( frame ) ) {
            continue;
         }
         SCOPED_TRACE( document + ": " + Settings::toHex( frame ) );
         auto const learned = [ & ] {
            send( announcement( frame ) ); // again, for one that does not listen yet
            return !other_->neighbor( "far1" ).empty();
         };
         ASSERT_TRUE( eventually( learned, std::chrono::seconds( 5 ) ) )
            << "the neighbor does not accept its ids";
         send( frame );
         ASSERT_TRUE( eventually( [ & ] { return other_->neighbor( "far1" ).empty(); },
                                  std::chrono::seconds( 5 ) ) );
         ++tried;
      }
   }
   EXPECT_GE( tried, 8u );
}

} // namespace
} // namespace Valen::Test
