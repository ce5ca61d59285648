// Blipline: writing, wrapping, lost lines; reading after a crash, damage or forgery.
#include "platform/trace/Blipline.h"
#include "platform/quill/Exception.h"
#include "platform/trace/BliplineFormat.h"
#include "platform/trace/Trace.h"

#include <gmock/gmock.h>

#include <cstring>
#include <deque>
#include <random>
#include <sched.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Blipline::Line;
using Blipline::Reader;
using Blipline::Ring;
using Kind = Twinlog::Value::Kind;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Memory that begins where a mapping would.
class Memory {
 public:
   explicit Memory( std::size_t size ) : words_( ( size + 7 ) / 8, ~0ull ), size_( size ) {}
   std::span< std::byte > span() {
      return std::as_writable_bytes( std::span( words_ ) ).first( size_ );
   }

 private:
   std::vector< U64 > words_;
   std::size_t size_;
};

Twinlog::Value text( std::string_view bytes ) {
   return { Kind::text, bytes };
}

Twinlog::Value number( U64 value ) {
   return { Kind::unsignedNumber, {}, value };
}

std::vector< std::string > texts( std::span< std::byte const > memory ) {
   std::vector< std::string > found;
   Reader reader( memory );
   Line line;
   while ( reader.next( line ) ) {
      found.emplace_back( line.text.view() );
   }
   EXPECT_FALSE( reader.damaged() );
   return found;
}

struct BliplineTest : testing::Test {
   void write( U64 value ) {
      Twinlog::Value const values[] = { number( value ) };
      ring.write( counting, std::chrono::nanoseconds( value ), values );
   }

   Memory memory{ Ring::minSize };
   Ring ring{ memory.span() };
   Quill::TracePoint plain{ "ConfigSm", 17, 1, "void f()", "done" };
   Quill::TracePoint counting{ "IntfSm", 18, 0, "void g( U64 )", "number %s" };
};

TEST_F( BliplineTest, NewRingIsValidAndEmpty ) {
   Reader reader( memory.span() );
   Line line;
   EXPECT_TRUE( reader.valid() );
   EXPECT_FALSE( reader.next( line ) );
   EXPECT_FALSE( reader.damaged() );
   EXPECT_EQ( reader.lost(), 0u );
}

TEST_F( BliplineTest, LineIsReadAsItWasWritten ) {
   Twinlog::Value const values[] = {
      text( "red" ), { Kind::number, {}, static_cast< U64 >( -4 ) }, number( 255 ) };
   Quill::TracePoint point{ "ConfigSm", 17, 1, "void f()", "vrf %s, %s, %x" };
   ring.write( point, 123456789ns, values );
   Reader reader( memory.span() );
   Line line;
   ASSERT_TRUE( reader.next( line ) );
   EXPECT_EQ( line.time, 123456789ns );
   EXPECT_EQ( line.unit, "ConfigSm" );
   EXPECT_EQ( line.line, 17u );
   EXPECT_EQ( line.level, 1u );
   EXPECT_EQ( line.text.view(), "void f(): vrf red, -4, ff" );
   EXPECT_FALSE( reader.next( line ) );
}

TEST_F( BliplineTest, LinesComeInTheOrderOfWriting ) {
   ring.write( plain, 1ns, {} );
   write( 2 );
   ring.write( plain, 3ns, {} );
   EXPECT_THAT( texts( memory.span() ),
                ElementsAre( "void f(): done", "void g( U64 ): number 2", "void f(): done" ) );
}

TEST_F( BliplineTest, TextsOfAllLengthsSurviveAlignment ) {
   Quill::TracePoint point{ "U", 1, 0, "", "%s|%s" };
   for ( std::size_t length = 0; length < 20; ++length ) {
      std::string const bytes( length, 'x' );
      Twinlog::Value const values[] = { text( bytes ), text( "end" ) };
      ring.write( point, 1ns, values );
   }
   auto const found = texts( memory.span() );
   ASSERT_EQ( found.size(), 20u );
   for ( std::size_t length = 0; length < 20; ++length ) {
      EXPECT_EQ( found[ length ], ": " + std::string( length, 'x' ) + "|end" );
   }
}

TEST_F( BliplineTest, OldestLinesMakeRoom ) {
   for ( U64 i = 0; i < 10'000; ++i ) {
      write( i );
      auto const found = texts( memory.span() );
      ASSERT_FALSE( found.empty() );
      ASSERT_EQ( found.back(), "void g( U64 ): number " + std::to_string( i ) );
   }
   auto const found = texts( memory.span() );
   EXPECT_GT( found.size(), 90u ); // most of the 4 KiB, at 32 bytes each
   for ( std::size_t i = 0; i < found.size(); ++i ) {
      EXPECT_EQ( found[ i ],
                 "void g( U64 ): number " + std::to_string( 10'000 - found.size() + i ) );
   }
   EXPECT_EQ( ring.lost(), 0u );
}

// Lines of every size, against what a plain queue would hold: the newest are there without a gap.
TEST_F( BliplineTest, RandomLinesWrapLikeAQueue ) {
   Quill::TracePoint point{ "U", 1, 0, "s", "%s %s" };
   std::mt19937 random( 7 );
   std::deque< std::string > written;
   for ( U32 i = 0; i < 20'000; ++i ) {
      std::string const bytes( random() % 300, static_cast< char >( 'a' + i % 26 ) );
      Twinlog::Value const values[] = { number( i ), text( bytes ) };
      ring.write( point, 1ns, values );
      written.push_back( "s: " + std::to_string( i ) + " " + bytes );
      if ( i % 50 == 0 ) {
         auto const found = texts( memory.span() );
         ASSERT_GE( found.size(), std::min< std::size_t >( i + 1, 5 ) );
         ASSERT_TRUE( std::equal( found.rbegin(), found.rend(), written.rbegin() ) );
      }
   }
}

TEST_F( BliplineTest, ALineThatFitsInHalfTheRingIsNotCut ) {
   Memory large( 1 << 16 );
   Ring roomy( large.span() );
   std::string const signature( 1500, 's' );
   std::string const format = std::string( 1500, 'f' ) + "%s%s|%s";
   Quill::TracePoint point{ "U", 1, 0, signature, format };
   std::string const bytes( 5000, 'x' );
   Twinlog::Value const values[] = { text( bytes ), text( bytes ), number( 7 ) };
   roomy.write( point, 1ns, values );
   EXPECT_THAT( texts( large.span() ),
                ElementsAre( signature + ": " + std::string( 1500, 'f' ) + bytes + bytes + "|7" ) );
   EXPECT_EQ( roomy.lost(), 0u );
}

TEST_F( BliplineTest, TextsTooLongForTheRingShareHalfOfIt ) {
   Quill::TracePoint point{ "U", 1, 0, "s", "%s%s%s" };
   std::string const bytes( 1000, 'x' );
   Twinlog::Value const values[] = { text( bytes ), text( bytes ), text( bytes ) };
   ring.write( point, 1ns, values );
   EXPECT_EQ( ring.lost(), 0u );
   auto const found = texts( memory.span() );
   ASSERT_EQ( found.size(), 1u );
   EXPECT_EQ( found[ 0 ].find_first_not_of( 'x', 3 ), std::string::npos );
   EXPECT_GT( found[ 0 ].size(), 1000u );
}

TEST_F( BliplineTest, LineOfTooManyValuesIsLostAndCounted ) {
   std::vector< Twinlog::Value > const values( 500, number( 1 ) );
   write( 1 );
   ring.write( plain, 1ns, values );
   write( 2 );
   EXPECT_EQ( ring.lost(), 1u );
   EXPECT_EQ( Reader( memory.span() ).lost(), 1u );
   EXPECT_THAT( texts( memory.span() ),
                ElementsAre( "void g( U64 ): number 1", "void g( U64 ): number 2" ) );
}

TEST_F( BliplineTest, TracePointWithoutRoomForItsDescriptionIsLostAndCounted ) {
   std::deque< Quill::TracePoint > points;
   std::string const signature( 100, 's' );
   for ( U32 i = 0; i < 20; ++i ) {
      points.push_back( { "U", 1, 0, signature, "f" } );
   }
   for ( auto & point : points ) {
      ring.write( point, 1ns, {} );
   }
   auto const written = texts( memory.span() ).size();
   EXPECT_GT( written, 0u );
   EXPECT_LT( written, 20u );
   EXPECT_EQ( ring.lost(), 20 - written );
   ring.write( points.front(), 1ns, {} ); // a described trace point still works
   EXPECT_EQ( texts( memory.span() ).size(), written + 1 );
   ring.write( points.back(), 1ns, {} );
   EXPECT_EQ( Reader( memory.span() ).lost(), 21 - written );
}

TEST_F( BliplineTest, TracePointIsDescribedAgainInAnotherRing ) {
   write( 1 );
   Memory other( Ring::minSize );
   Ring second( other.span() );
   second.write( plain, 1ns, {} );
   Twinlog::Value const values[] = { number( 2 ) };
   second.write( counting, 1ns, values );
   EXPECT_THAT( texts( other.span() ), ElementsAre( "void f(): done", "void g( U64 ): number 2" ) );
   write( 3 );
   EXPECT_THAT( texts( memory.span() ),
                ElementsAre( "void g( U64 ): number 1", "void g( U64 ): number 3" ) );
}

TEST_F( BliplineTest, RingInUsedMemoryStartsEmpty ) {
   write( 1 );
   Ring const again( memory.span() );
   EXPECT_THAT( texts( memory.span() ), IsEmpty() );
}

TEST_F( BliplineTest, TimesAreTurnedIntoDates ) {
   auto const now = [] {
      return std::chrono::nanoseconds( std::chrono::system_clock::now().time_since_epoch() );
   };
   auto const before = now();
   ring.write( plain, std::chrono::steady_clock::now().time_since_epoch(), {} );
   Reader reader( memory.span() );
   Line line;
   ASSERT_TRUE( reader.next( line ) );
   EXPECT_NEAR( static_cast< double >( reader.wallTime( line.time ).count() ),
                static_cast< double >( before.count() ), 5e9 );
   EXPECT_EQ( reader.wallTime( line.time + 1s ) - reader.wallTime( line.time ), 1s );
}

TEST_F( BliplineTest, OddSizesAreUsedAsFarAsTheyGo ) {
   for ( std::size_t size = Ring::minSize; size < Ring::minSize + 20; ++size ) {
      Memory odd( size );
      Ring odds( odd.span() );
      for ( U64 i = 0; i < 500; ++i ) {
         Twinlog::Value const values[] = { number( i ) };
         odds.write( counting, 1ns, values );
      }
      EXPECT_EQ( texts( odd.span() ).back(), "void g( U64 ): number 499" );
   }
}

TEST_F( BliplineTest, TooLittleMemoryIsRejected ) {
   Memory little( Ring::minSize - 1 );
   try {
      Ring const ringOfLittle( little.span() );
      FAIL() << "accepted";
   } catch ( Quill::RangeException const & e ) {
      EXPECT_STREQ( e.what(), "trace ring of 4095 bytes is smaller than 4096" );
   }
}

TEST_F( BliplineTest, WriterSurvivesARingThatWasOverwrittenFromOutside ) {
   for ( U64 i = 0; i < 50; ++i ) {
      write( i );
   }
   auto const ringBegin = Ring::minSize / 2; // well inside the ring
   std::memset( memory.span().data() + ringBegin, 0xff, Ring::minSize - ringBegin );
   for ( U64 i = 0; i < 1000; ++i ) {
      write( i );
   }
   EXPECT_EQ( texts( memory.span() ).back(), "void g( U64 ): number 999" );
}

TEST_F( BliplineTest, ProcessHasOneRing ) {
   EXPECT_EQ( Blipline::ring(), nullptr );
   EXPECT_EQ( Blipline::ringIs( &ring ), nullptr );
   EXPECT_EQ( Blipline::ring(), &ring );
   EXPECT_EQ( Blipline::ringIs( nullptr ), &ring );
}

// --- Reading what is damaged ---------------------------------------------------------------------

// Reads everything. What it reads does not matter, as long as it returns.
std::size_t readAll( std::span< std::byte const > memory ) {
   Reader reader( memory );
   Line line;
   std::size_t lines = 0;
   std::size_t bytes = 0;
   while ( reader.next( line ) ) {
      ++lines;
      bytes += line.unit.size() + line.text.view().size();
   }
   EXPECT_LE( lines, memory.size() / 16 );
   return bytes;
}

struct DamagedRing : BliplineTest {
   DamagedRing() {
      for ( U32 i = 0; i < 300; ++i ) {
         Twinlog::Value const values[] = { text( "Ethernet1" ), number( i ) };
         ring.write( i % 2 ? plain : both, std::chrono::nanoseconds( i ), values );
      }
   }
   // A copy of exactly the file's size on the heap, where a sanitizer sees each step outside.
   std::vector< std::byte > copy() { return { memory.span().begin(), memory.span().end() }; }

   template < class T > void patch( std::vector< std::byte > & bytes, std::size_t at, T value ) {
      std::memcpy( bytes.data() + at, &value, sizeof value );
   }

   Quill::TracePoint both{ "IntfSm", 20, 0, "void h()", "%s is %s" };
};

TEST_F( DamagedRing, NothingAtAllIsNoRing ) {
   EXPECT_FALSE( Reader( {} ).valid() );
   EXPECT_TRUE( Reader( {} ).damaged() );
   std::vector< std::byte > const zeros( 8192 );
   EXPECT_FALSE( Reader( zeros ).valid() );
   Line line;
   EXPECT_FALSE( Reader( zeros ).next( line ) );
}

TEST_F( DamagedRing, FileCutShortAnywhereIsNoRing ) {
   auto const whole = copy();
   ASSERT_TRUE( Reader( whole ).valid() );
   for ( std::size_t size = 0; size < whole.size(); ++size ) {
      std::vector< std::byte > const cut( whole.begin(),
                                          whole.begin() + static_cast< long >( size ) );
      ASSERT_FALSE( Reader( cut ).valid() ) << size;
      ASSERT_EQ( readAll( cut ), 0u );
   }
}

TEST_F( DamagedRing, RandomBitFlipsNeverCauseReadsOutsideTheMemory ) {
   for ( U32 seed = 0; seed < 2000; ++seed ) {
      std::mt19937 random( seed );
      auto bytes = copy();
      // A few flips anywhere, and every other time some in what leads the reader.
      for ( U32 i = 0; i <= seed % 8; ++i ) {
         auto const range = seed % 2 ? bytes.size() : 700;
         bytes[ random() % range ] ^= static_cast< std::byte >( 1 + random() % 255 );
      }
      readAll( bytes );
   }
}

TEST_F( DamagedRing, RandomBytesAfterAValidHeaderNeverCauseReadsOutsideTheMemory ) {
   for ( U32 seed = 0; seed < 300; ++seed ) {
      std::mt19937 random( seed );
      auto bytes = copy();
      for ( std::size_t i = sizeof( Blipline::Format::Header ); i < bytes.size(); ++i ) {
         bytes[ i ] = static_cast< std::byte >( random() );
      }
      readAll( bytes );
   }
}

TEST_F( DamagedRing, ForgedSizesAreRejected ) {
   using Blipline::Format::Header;
   for ( U64 const forged : { 1ull, 4ull, ~0ull, ~7ull, 1ull << 63, 8ull << 32 } ) {
      for ( auto const offset : { offsetof( Header, descriptorSize ), offsetof( Header, ringSize ),
                                  offsetof( Header, descriptorEnd ), offsetof( Header, tail ),
                                  offsetof( Header, head ) } ) {
         auto bytes = copy();
         patch( bytes, offset, forged );
         readAll( bytes );
         EXPECT_TRUE( !Reader( bytes ).valid() || Reader( bytes ).damaged() ||
                      offset == offsetof( Header, tail ) )
            << offset << " " << forged;
      }
   }
}

TEST_F( DamagedRing, AnotherVersionIsNoRing ) {
   auto bytes = copy();
   patch( bytes, offsetof( Blipline::Format::Header, version ), U32{ 2 } );
   EXPECT_FALSE( Reader( bytes ).valid() );
}

TEST_F( DamagedRing, RecordOfAnUnknownTracePointIsSkippedAndReported ) {
   Memory fresh( Ring::minSize );
   Ring short_( fresh.span() );
   for ( U32 i = 0; i < 3; ++i ) {
      short_.write( plain, std::chrono::nanoseconds( i ), {} );
   }
   std::vector< std::byte > bytes( fresh.span().begin(), fresh.span().end() );
   Blipline::Format::Header header;
   std::memcpy( &header, bytes.data(), sizeof header );
   auto const second = sizeof header + header.descriptorSize + sizeof( Blipline::Format::Record );
   patch( bytes, second + offsetof( Blipline::Format::Start, descriptor ), U32{ 77 } );
   Reader reader( bytes );
   Line line;
   ASSERT_TRUE( reader.next( line ) );
   EXPECT_EQ( line.time, 0ns );
   EXPECT_FALSE( reader.damaged() );
   ASSERT_TRUE( reader.next( line ) );
   EXPECT_EQ( line.time, 2ns );
   EXPECT_TRUE( reader.damaged() );
   EXPECT_FALSE( reader.next( line ) );
}

// --- Reading while the writer writes, and after it died ------------------------------------------

// A ring in memory shared with a process that writes numbers to it until it is killed.
class WritingProcess {
 public:
   static constexpr std::size_t size = 1 << 18; // takes a while to copy

   WritingProcess()
       : memory_(
            ::mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) {
      child_ = ::fork();
      if ( child_ == 0 ) {
         write();
      }
      while ( tail() == 0 ) { // until it has wrapped
         ::sched_yield();
      }
   }
   ~WritingProcess() {
      kill();
      ::munmap( memory_, size );
   }

   void kill() {
      if ( child_ > 0 ) {
         ::kill( child_, SIGKILL );
         ::waitpid( child_, nullptr, 0 );
         child_ = -1;
      }
   }
   std::span< std::byte const > memory() const {
      return { static_cast< std::byte const * >( memory_ ), size };
   }
   // How much the writer has given up so far.
   U64 tail() const {
      U64 tail;
      std::memcpy( &tail, memory().data() + offsetof( Blipline::Format::Header, tail ),
                   sizeof tail );
      return tail;
   }

 private:
   [[noreturn]] void write() {
      Ring ring( { static_cast< std::byte * >( memory_ ), size } );
      Quill::TracePoint point{ "U", 1, 0, "s", "%s%s" };
      static std::string const filler( 300, '.' );
      for ( U64 i = 0;; ++i ) {
         Twinlog::Value const values[] = {
            number( i ), text( std::string_view( filler ).substr( 0, i * 7 % 300 ) ) };
         ring.write( point, 1ns, values );
      }
   }

   void * memory_;
   pid_t child_;
};

void expectNoGap( std::vector< std::string > const & texts ) {
   for ( std::size_t i = 1; i < texts.size(); ++i ) {
      auto const previous = std::stoull( texts[ i - 1 ].substr( 3 ) );
      auto const expected =
         "s: " + std::to_string( previous + 1 ) + std::string( ( previous + 1 ) * 7 % 300, '.' );
      ASSERT_EQ( texts[ i ], expected );
   }
}

TEST( BliplineOfAnotherProcess, SnapshotsInMidWriteAreWhole ) {
   WritingProcess const process;
   U32 inMidWrite = 0;
   auto const timeout = std::chrono::steady_clock::now() + 20s;
   while ( inMidWrite < 50 && !HasFatalFailure() && std::chrono::steady_clock::now() < timeout ) {
      auto const before = process.tail();
      auto const copy = Blipline::snapshot( process.memory() );
      inMidWrite += process.tail() != before;
      expectNoGap( texts( copy ) );
   }
   EXPECT_GT( inMidWrite, 0u ) << "the writer never ran during a snapshot";
}

TEST( BliplineOfAnotherProcess, RingOfAKilledProcessIsWhole ) {
   for ( U32 i = 0; i < 20; ++i ) {
      WritingProcess process;
      process.kill();
      auto const found = ::texts( process.memory() );
      EXPECT_GT( found.size(), 500u );
      expectNoGap( found );
   }
}

TEST( BliplineOfAnotherProcess, SnapshotOfTooLittleIsEmpty ) {
   Memory memory( 40 );
   EXPECT_TRUE( Blipline::snapshot( memory.span() ).empty() );
   EXPECT_TRUE( Blipline::snapshot( {} ).empty() );
}

} // namespace
