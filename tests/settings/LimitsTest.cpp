// Configurations that would take all memory, or never end.
#include "settings/Limits.h"

#include "settings/ConfigFiles.h"
#include "tests/settings/CaptureFile.h"
#include "tests/support/Fifo.h"
#include "tests/support/WorkDirectory.h"

#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Settings::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Valen::Test::WorkDirectory;

std::string repeated( std::size_t count, std::string const & text ) {
   std::string all;
   all.reserve( count * text.size() );
   for ( std::size_t i = 0; i < count; ++i ) {
      all += text;
   }
   return all;
}

std::vector< std::string > errorsOf( std::string const & text ) {
   std::vector< std::string > lines;
   for ( auto const & error : parseConfig( text, "c" ).errors ) {
      lines.push_back( error.message() );
   }
   return lines;
}

// The most memory that the process had so far.
std::size_t peakKilobytes() {
   rusage usage{};
   ::getrusage( RUSAGE_SELF, &usage );
   return static_cast< std::size_t >( usage.ru_maxrss );
}

// --- Depth and values ------------------------------------------------------------------------------

TEST( LimitsTest, DeepNestingIsRejectedBeforeItTakesMemory ) {
   auto const before = peakKilobytes();
   for ( auto const * opening :
         { "{", "[", "[{", "&a [", "!t {", "a: [", "{\"\": ", "- - - - - " } ) {
      auto const text = repeated( 4'000'000 / std::strlen( opening ), opening );
      EXPECT_THAT( errorsOf( text ), ElementsAre( ::testing::EndsWith(
                                        "nested deeper than 100, which is the limit" ) ) )
         << opening;
   }
   EXPECT_LT( peakKilobytes() - before, 200'000u ) << "100 bytes for each bracket would be 400 MB";
}

TEST( LimitsTest, NestingUpToTheLimitIsNotAnErrorOfItsOwn ) {
   EXPECT_THAT( errorsOf( repeated( maxDepth, "[" ) + repeated( maxDepth, "]" ) ),
                ElementsAre( ::testing::HasSubstr( "the configuration must be a mapping" ) ) );
   EXPECT_THAT( errorsOf( repeated( maxDepth + 1, "[" ) + repeated( maxDepth + 1, "]" ) ),
                ElementsAre( "c:1:101: nested deeper than 100, which is the limit" ) );
}

TEST( LimitsTest, BracketsThatAreTextDoNotCount ) {
   auto const many = repeated( 1000, "[{" );
   EXPECT_THAT( errorsOf( "# " + many + "\ninterfaces:\n- {name: \"" + repeated( 100, "[{" ) +
                          "\", device: et1}\n- {name: '" + repeated( 100, "{[" ) +
                          "', device: et2}\n- name: a" + repeated( 100, "[" ) +
                          "\n  device: et3 # " + many + "\n" ),
                IsEmpty() );
}

TEST( LimitsTest, TooManyValuesAreRejectedBeforeTheTreeIsBuilt ) {
   auto const before = peakKilobytes();
   std::string const limit = "more than 500000 values, which is the limit";
   EXPECT_THAT( errorsOf( repeated( 260'000, "a: b\n" ) ), ElementsAre( "c:250000:4: " + limit ) );
   EXPECT_THAT( errorsOf( "[" + repeated( 2'000'000, "a," ) ),
                ElementsAre( ::testing::EndsWith( limit ) ) );
   EXPECT_THAT( errorsOf( "[" + repeated( 2'000'000, "\"\" " ) ),
                ElementsAre( ::testing::EndsWith( limit ) ) );
   EXPECT_LT( peakKilobytes() - before, 200'000u );
}

TEST( LimitsTest, TheValuesOfAllFilesCountTogether ) {
   std::string list = "x: [" + repeated( maxValues / 2, "a," ) + "]";
   auto const errors = parseConfig( { { "a", list }, { "b", list } } ).errors;
   ASSERT_THAT( errors, SizeIs( 2 ) );
   EXPECT_EQ( errors[ 0 ].place.file, "a" );
   EXPECT_THAT( errors[ 1 ].message(),
                ::testing::MatchesRegex( "b:1:.*: more than .* values, .*" ) );
}

// --- Errors ---------------------------------------------------------------------------------------

TEST( LimitsTest, TheFirstHundredErrorsAreListedAndTheOthersCounted ) {
   std::string text;
   for ( int i = 0; i < 1000; ++i ) {
      text += "key" + std::to_string( i ) + ": 1\n";
   }
   auto const errors = errorsOf( text + "shutdown-delay-ms: x\n" );
   ASSERT_THAT( errors, SizeIs( maxErrors + 1 ) );
   EXPECT_TRUE( errors[ 0 ].starts_with( "c:1:1: unknown key \"key0\"" ) );
   EXPECT_TRUE( errors[ 99 ].starts_with( "c:100:1: unknown key \"key99\"" ) );
   EXPECT_EQ( errors[ 100 ], "c: and 901 more errors" );
}

TEST( LimitsTest, AHundredErrorsAreAllListed ) {
   std::string text;
   for ( int i = 0; i < 100; ++i ) {
      text += "key" + std::to_string( i ) + ": 1\n";
   }
   EXPECT_THAT( errorsOf( text ), SizeIs( 100 ) );
}

// An interface is read after the keys of the whole file, and an agent after all interfaces.
TEST( LimitsTest, TheErrorsThatAreListedAreTheFirstByPlace ) {
   std::string text = "agents: [1]\ninterfaces: [2]\n";
   for ( int i = 0; i < 200; ++i ) {
      text += "key" + std::to_string( i ) + ": 1\n";
   }
   auto const errors = errorsOf( text );
   EXPECT_EQ( errors.at( 0 ), "c:1:10: an agent must be a mapping (\"key: value\" lines)" );
   EXPECT_EQ( errors.at( 1 ), "c:2:14: an interface must be a mapping (\"key: value\" lines)" );
   EXPECT_EQ( errors.back(), "c: and 102 more errors" );
}

// --- What is made of it ---------------------------------------------------------------------------

TEST( LimitsTest, AliasesDoNotMakeMillionsOfFrames ) {
   std::string text = "x: &f [";
   text += repeated( 999, "\"0180c200000e0200000000aa88cc\"," ) + "]\ninterfaces:\n";
   std::string messages;
   for ( int i = 0; i < 1000; ++i ) {
      text += "- {name: p" + std::to_string( i ) + "}\n";
      messages += "    p" + std::to_string( i ) + ": *f\n";
   }
   auto const result = parseConfig( text + "agents:\n- name: a\n  messages:\n" + messages, "c" );
   ASSERT_THAT( result.errors, SizeIs( 2 ) ); // the first is the unknown key "x"
   EXPECT_EQ( result.errors[ 1 ].text, "more than 250000 frames or 16777216 bytes in frames, "
                                       "which is the limit" );
   std::size_t frames = 0;
   for ( auto const & [ interface, each ] : result.config.agents.at( "a" ) ) {
      frames += each.size();
   }
   EXPECT_LE( frames, maxConfigFrames + 1 );
}

TEST( LimitsTest, TheBytesOfAllFramesAreLimited ) {
   std::string text = "interfaces: [{name: et1}]\nagents:\n- name: a\n  messages:\n    et1:\n";
   text += "    - &f \"" + repeated( 60'000, "00" ) + "\"\n" + repeated( 300, "    - *f\n" );
   EXPECT_THAT( errorsOf( text ),
                ElementsAre( "c:6:7: more than 250000 frames or 16777216 bytes in frames, which is "
                             "the limit" ) );
}

class LimitsOfFilesTest : public ::testing::Test {
 protected:
   std::vector< std::string > errors( std::string const & file = "valen.yaml" ) const {
      std::vector< std::string > lines;
      for ( auto const & error : readConfig( file == "-" ? file : directory / file ).errors ) {
         lines.push_back( error.message() );
      }
      return lines;
   }

   WorkDirectory directory;
};

TEST_F( LimitsOfFilesTest, TheFramesOfACaptureAreLimited ) {
   directory.write( "valen.yaml", "interfaces: [{name: et1}]\nagents: [{name: a, messages: {et1: "
                                  "[\"pcap:a.pcap#" +
                                     repeated( 400, "1," ) + "1\"]}}]" );
   directory.write( "a.pcap", pcapFile( { std::string( 60'000, 'x' ) } ) );
   EXPECT_THAT( errors(), ElementsAre( ::testing::EndsWith( "a.pcap: more than 16777216 bytes in "
                                                            "frames, which is the limit" ) ) );
}

// --- What is opened -------------------------------------------------------------------------------

TEST_F( LimitsOfFilesTest, AllFilesTogetherAreLimited ) {
   directory.write( "valen.yaml", "# one" );
   directory.write( "conf.d/a.yaml", "" );
   std::filesystem::resize_file( directory / "conf.d/a.yaml", maxConfigBytes );
   EXPECT_THAT( errors(), ElementsAre( directory / "conf.d/a.yaml" +
                                       ": exceeds the limit of 16777216 bytes, of all files "
                                       "together" ) );
}

TEST_F( LimitsOfFilesTest, WhatValendWritesItselfMayBeLarger ) {
   directory.write( "kept.yaml", "" );
   std::filesystem::resize_file( directory / "kept.yaml", maxWrittenBytes + 1 );
   EXPECT_THAT( readConfigFile( directory / "kept.yaml" ).errors.at( 0 ).text,
                ::testing::StartsWith( "exceeds the limit of 67108864 bytes" ) );
}

TEST_F( LimitsOfFilesTest, ADeviceIsNotRead ) {
   directory.link( "/dev/zero", "valen.yaml" );
   EXPECT_THAT( errors(),
                ElementsAre( directory / "valen.yaml" + ": cannot read: not a regular file" ) );
   directory.remove( "valen.yaml" );
   directory.link( "/dev/null", "valen.yaml" );
   EXPECT_THAT( errors(), IsEmpty() ) << "it is as good as an empty file";
}

// A pseudo-terminal: reading one waits for the keyboard.
class Terminal {
 public:
   Terminal() : master_( ::posix_openpt( O_RDWR | O_NOCTTY | O_CLOEXEC ) ) {
      ::grantpt( master_ );
      ::unlockpt( master_ );
   }
   ~Terminal() { ::close( master_ ); }
   std::string path() const { return ::ptsname( master_ ); }

 private:
   int const master_;
};

// Standard input is another file while this exists.
class StandardInput {
 public:
   explicit StandardInput( int file ) : before_( ::dup( STDIN_FILENO ) ) {
      ::dup2( file, STDIN_FILENO );
   }
   ~StandardInput() {
      ::dup2( before_, STDIN_FILENO );
      ::close( before_ );
   }

 private:
   int const before_;
};

TEST_F( LimitsOfFilesTest, ATerminalIsNotRead ) {
   Terminal const terminal;
   directory.link( terminal.path(), "valen.yaml" );
   EXPECT_THAT( errors(),
                ElementsAre( directory / "valen.yaml" + ": cannot read: not a regular file" ) );
   auto const file = ::open( terminal.path().c_str(), O_RDWR | O_NOCTTY );
   StandardInput const input( file );
   EXPECT_THAT( errors( "-" ), ElementsAre( "-: is a terminal; expected a file or a pipe" ) );
   ::close( file );
}

// Opening one waits for its writer, unless it is told not to.
TEST_F( LimitsOfFilesTest, AFifoIsNotWaitedFor ) {
   auto const file = directory / "valen.yaml";
   EXPECT_THAT( Valen::Test::readOfFifo( file, [ this ] { return errors(); } ),
                ElementsAre( file + ": cannot read: not a regular file" ) );
}

TEST_F( LimitsOfFilesTest, APipeIsReadToItsEnd ) {
   int ends[ 2 ];
   ASSERT_EQ( ::pipe( ends ), 0 );
   ASSERT_EQ( ::write( ends[ 1 ], "color: blue", 11 ), 11 );
   ::close( ends[ 1 ] );
   StandardInput const input( ends[ 0 ] );
   EXPECT_THAT( errors( "-" ), ElementsAre( ::testing::StartsWith( "-:1:1: unknown key" ) ) );
   ::close( ends[ 0 ] );
}

TEST_F( LimitsOfFilesTest, ACaptureWithANulInItsNameHasAReason ) {
   directory.write( "valen.yaml", "interfaces: [{name: et1}]\n"
                                  "agents: [{name: a, messages: {et1: [\"pcap:\\0x#1\"]}}]" );
   auto const all = errors();
   ASSERT_THAT( all, SizeIs( 1 ) );
   EXPECT_THAT( all[ 0 ], ::testing::EndsWith( ":2:37: the name of a capture file contains "
                                               "a NUL byte" ) );
}

} // namespace
} // namespace Settings::Test
