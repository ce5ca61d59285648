#include "platform/trace/Blipline.h"
#include "platform/trace/BliplineFormat.h"
#include "platform/trace/Trace.h"
#include "tests/support/WorkDirectory.h"
#include "tests/valenctl/CommandLine.h"

#include <cstdio>
#include <fstream>

namespace Valenctl::Test {
namespace {

using ::testing::EndsWith;
using ::testing::MatchesRegex;

class TraceCommandsTest : public CommandLine {
 protected:
   static Json answer( char const * text ) {
      return { { "lines",
                 { { { "timeNs", 1'700'000'000'123'456'789u },
                     { "unit", "ConfigSm" },
                     { "level", 1 },
                     { "text", text } } } } };
   }
   // Writes a ring with one line to the file.
   void writeRing() {
      std::vector< U64 > words( Blipline::Ring::minSize / sizeof( U64 ) );
      Blipline::Ring ring( std::as_writable_bytes( std::span( words ) ) );
      Quill::TracePoint point{ "ConfigSm", 17, 1, "void f()", "done" };
      ring.write( point, std::chrono::nanoseconds( 1 ), {} );
      auto const bytes = std::as_bytes( std::span( words ) );
      std::ofstream( file, std::ios::binary )
         .write( reinterpret_cast< char const * >( bytes.data() ),
                 static_cast< std::streamsize >( bytes.size() ) );
   }

   Valen::Test::WorkDirectory const work;
   std::string const file = work / "ring";
   std::string const line = "2023-11-14T22:13:20.123456Z ConfigSm/1 ";
};

TEST_F( TraceCommandsTest, TraceShowsTheNewestLines ) {
   daemon.answers( "Trace", { answer( "f(): x" ) } );
   EXPECT_EQ( run( { "trace" } ), Exit::done );
   EXPECT_EQ( onlyCall( "Trace" ), ( Json{ { "lines", 100 } } ) );
   EXPECT_FALSE( daemon.calls()[ 0 ].more );
   EXPECT_EQ( out, line + "f(): x\n" );
   run( { "trace", "--lines", "7", "--json" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "lines", 7 } } ) );
   EXPECT_EQ( Json::parse( out )[ "unit" ], "ConfigSm" );
}

TEST_F( TraceCommandsTest, FollowGoesOnWithNewLines ) {
   daemon.answers( "Trace", { answer( "a" ), answer( "b" ) } );
   for ( auto const & words : std::vector< Words >{ { "trace", "follow", "--lines", "7" },
                                                    { "trace", "--lines", "7", "follow" } } ) {
      EXPECT_EQ( run( words ), Exit::done );
      EXPECT_EQ( daemon.calls().back().parameters, ( Json{ { "lines", 7 } } ) );
      EXPECT_TRUE( daemon.calls().back().more );
      EXPECT_EQ( out, line + "a\n" + line + "b\n" );
   }
}

TEST_F( TraceCommandsTest, LevelsAreShownOrSet ) {
   daemon.answers( "TraceLevels", { { { "levels", "*/0-1" } } } );
   EXPECT_EQ( run( { "trace", "levels" } ), Exit::done );
   EXPECT_EQ( onlyCall( "TraceLevels" ), Json::object() );
   EXPECT_EQ( out, "*/0-1\n" );
   run( { "trace", "levels", "ConfigSm/0" } );
   EXPECT_EQ( daemon.calls()[ 1 ].parameters, ( Json{ { "levels", "ConfigSm/0" } } ) );
}

TEST_F( TraceCommandsTest, DumpReadsARingWithoutTheDaemon ) {
   writeRing();
   EXPECT_EQ( run( { "trace", "dump", "--file", file } ), Exit::done );
   EXPECT_THAT( out, MatchesRegex( "[0-9T:.-]+Z ConfigSm/1 void f\\(\\): done\n" ) );
   EXPECT_EQ( err, "" );
   EXPECT_TRUE( daemon.calls().empty() );
}

TEST_F( TraceCommandsTest, ARingIsShownAsJsonInTheFormOfTheApi ) {
   writeRing();
   EXPECT_EQ( run( { "trace", "dump", "--file", file, "--json" } ), Exit::done );
   auto shown = Json::parse( out );
   EXPECT_GT( shown[ "timeNs" ], 0 );
   EXPECT_EQ( shown[ "unit" ], "ConfigSm" );
   EXPECT_EQ( shown[ "level" ], 1 );
   EXPECT_EQ( shown[ "text" ], "void f(): done" );
}

TEST_F( TraceCommandsTest, AFileThatIsNotARingIsReported ) {
   std::ofstream( file ) << "text";
   EXPECT_EQ( run( { "trace", "dump", "--file", file } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: " + file + " is not a trace ring\n" );
   EXPECT_EQ( run( { "trace", "dump", "--file", file + "-none" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: cannot open " + file + "-none: No such file or directory\n" );
   EXPECT_EQ( run( { "trace", "dump", "--file", "/" } ), Exit::failed );
   EXPECT_THAT( err, EndsWith( ": Is a directory\n" ) );
   EXPECT_EQ( run( { "trace", "dump" } ), Exit::usage );
}

TEST_F( TraceCommandsTest, ADamagedRingShowsWhatIsReadable ) {
   writeRing();
   Blipline::Format::Header header;
   std::fstream ring( file, std::ios::binary | std::ios::in | std::ios::out );
   ring.read( reinterpret_cast< char * >( &header ), sizeof header );
   ring.seekp( static_cast< std::streamoff >( sizeof header + header.descriptorSize +
                                              offsetof( Blipline::Format::Start, descriptor ) ) );
   ring.write( "\x7f\0\0", 4 ); // a trace point that is not described
   ring.close();
   EXPECT_EQ( run( { "trace", "dump", "--file", file } ), Exit::done );
   EXPECT_EQ( out, "" );
   EXPECT_EQ( err, "valenctl: " + file + " is damaged; only readable lines are shown\n" );
}

} // namespace
} // namespace Valenctl::Test
