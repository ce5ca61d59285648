// The trace facility: levels by pattern, the line, both outputs.
#include "platform/trace/Trace.h"
#include "platform/quill/Assert.h"
#include "platform/quill/Attributes.h"
#include "platform/quill/EntityTables.h"
#include "platform/trace/Blipline.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace {

QUILL_TRACE_UNIT( "TraceTestSm" )

using testing::ElementsAre;
using testing::IsEmpty;
using Valen::Test::TraceCapture;

enum class Colour : U8 { red = 7 };

class Traced final : public Quill::Entity {
   QUILL_ENTITY( Traced )
   QUILL_SINGLE( U32, number )
};

QUILL_ENTITY_TABLES( Traced )

void traceKeys( Quill::Name const & name, U32 count ) {
   TRACE0( "vrf %s, %s", name, count );
}

class TraceTest : public testing::Test {
 protected:
   ~TraceTest() override { Quill::traceLevelsIs( "" ); }

   static bool enabled( Quill::TraceHandle const & handle, std::string const & patterns,
                        U8 level ) {
      Quill::traceLevelsIs( patterns );
      return handle.enabled( level );
   }

   static std::string refusal( std::string const & patterns ) {
      try {
         Quill::traceLevelsIs( patterns );
      } catch ( Quill::RangeException const & e ) {
         return e.what();
      }
      return "accepted";
   }

   Quill::TraceHandle handle{ "ConfigSm", 0 };
};

TEST_F( TraceTest, EveryLevelIsOffUntilAPatternNamesTheHandle ) {
   for ( U8 level = 0; level < 10; ++level ) {
      EXPECT_FALSE( handle.enabled( level ) );
   }
   EXPECT_FALSE( enabled( handle, "IntfSm/0-9", 0 ) );
   EXPECT_TRUE( enabled( handle, "ConfigSm/0", 0 ) );
}

TEST_F( TraceTest, PatternSwitchesOneLevelOrARange ) {
   EXPECT_TRUE( enabled( handle, "ConfigSm/1", 1 ) );
   EXPECT_FALSE( enabled( handle, "ConfigSm/1", 0 ) );
   EXPECT_FALSE( enabled( handle, "ConfigSm/1", 2 ) );
   Quill::traceLevelsIs( "ConfigSm/2-4" );
   EXPECT_EQ( handle.levels(), 0b11100u );
   Quill::traceLevelsIs( "ConfigSm/0-9" );
   EXPECT_EQ( handle.levels(), 0x3ffu );
   Quill::traceLevelsIs( "ConfigSm/9" );
   EXPECT_EQ( handle.levels(), 0x200u );
}

TEST_F( TraceTest, FinalStarMatchesAnyEnding ) {
   EXPECT_TRUE( enabled( handle, "Conf*/0", 0 ) );
   EXPECT_TRUE( enabled( handle, "ConfigSm*/0", 0 ) );
   EXPECT_TRUE( enabled( handle, "*/0", 0 ) );
   EXPECT_FALSE( enabled( handle, "Conf/0", 0 ) );
   EXPECT_FALSE( enabled( handle, "*Sm/0", 0 ) );
   EXPECT_FALSE( enabled( handle, "ConfigSmart*/0", 0 ) );
}

TEST_F( TraceTest, LaterPatternWins ) {
   Quill::traceLevelsIs( "*/0-9,ConfigSm/1" );
   EXPECT_EQ( handle.levels(), 0b10u );
   Quill::traceLevelsIs( "ConfigSm/1,*/0" );
   EXPECT_EQ( handle.levels(), 0b1u );
}

TEST_F( TraceTest, HandleThatNoPatternNamesIsSwitchedOff ) {
   Quill::traceLevelsIs( "ConfigSm/0" );
   Quill::traceLevelsIs( "IntfSm/0" );
   EXPECT_EQ( handle.levels(), 0u );
}

TEST_F( TraceTest, HandlesMadeLaterFollowThePatternsInForce ) {
   Quill::traceLevelsIs( "Late*/0-1" );
   Quill::TraceHandle const late( "LateSm", 0 );
   EXPECT_EQ( late.levels(), 0b11u );
}

TEST_F( TraceTest, HandlesAreListedWhileTheyLive ) {
   auto const listed = []( std::string const & name ) {
      for ( auto const * h = Quill::TraceHandle::first(); h; h = h->next() ) {
         if ( h->name() == name ) {
            return true;
         }
      }
      return false;
   };
   {
      Quill::TraceHandle const first( "FirstOfTwo", 0 );
      Quill::TraceHandle const second( "SecondOfTwo", 0 );
      EXPECT_TRUE( listed( "FirstOfTwo" ) );
      EXPECT_TRUE( listed( "SecondOfTwo" ) );
   }
   EXPECT_FALSE( listed( "FirstOfTwo" ) );
   EXPECT_FALSE( listed( "SecondOfTwo" ) );
   EXPECT_TRUE( listed( "ConfigSm" ) );
}

TEST_F( TraceTest, ActivePatternsAreReturned ) {
   Quill::traceLevelsIs( "ConfigSm/0-1,Intf*/0" );
   EXPECT_EQ( Quill::traceLevels(), "ConfigSm/0-1,Intf*/0" );
   Quill::traceLevelsIs( "" );
   EXPECT_EQ( Quill::traceLevels(), "" );
}

TEST_F( TraceTest, PatternThatDoesNotParseIsNamedAndChangesNothing ) {
   auto const text = []( std::string const & pattern ) {
      return "trace pattern \"" + pattern +
             "\" is not NAME/LEVEL or NAME/FIRST-LAST with levels 0 to 9";
   };
   Quill::traceLevelsIs( "ConfigSm/3" );
   for ( std::string const pattern :
         { "ConfigSm", "ConfigSm/", "/1", "ConfigSm/a", "ConfigSm/10", "ConfigSm/2-1",
           "ConfigSm/1-", "ConfigSm/-1", "ConfigSm/1:2", "ConfigSm/1-x", "ConfigSm/12-3" } ) {
      EXPECT_EQ( refusal( pattern ), text( pattern ) );
      EXPECT_EQ( refusal( "IntfSm/0," + pattern + ",VrfSm/1" ), text( pattern ) );
   }
   EXPECT_EQ( refusal( ",ConfigSm/1" ), text( "" ) );
   EXPECT_EQ( Quill::traceLevels(), "ConfigSm/3" );
   EXPECT_EQ( handle.levels(), 0b1000u );
}

TEST_F( TraceTest, LineIsTheFullSignatureAndTheMessage ) {
   TraceCapture capture;
   traceKeys( "red", 3 );
   ASSERT_EQ( capture.lines().size(), 1u );
   EXPECT_EQ( capture.lines()[ 0 ].unit, "TraceTestSm" );
   EXPECT_EQ( capture.lines()[ 0 ].level, 0 );
   std::string const signature = capture.lines()[ 0 ].text;
   EXPECT_TRUE( signature.ends_with( "traceKeys(const Quill::Name&, U32): vrf red, 3" ) ||
                signature.ends_with( "traceKeys(const Quill::Name &, U32): vrf red, 3" ) )
      << signature;
}

TEST_F( TraceTest, ArgumentsAreShownByTheirDisplayForms ) {
   TraceCapture capture;
   auto const entity = Quill::make< Traced >();
   TRACE1( "%s %s %s %s %s", true, Colour::red, S32{ -5 }, U64{ ~0ull }, Quill::String( "text" ) );
   TRACE1( "%s %s %s", "literal", std::string( "string" ), std::string_view( "view" ) );
   TRACE1( "%s %s", Quill::Ptr< Traced >(), entity );
   TRACE1( "%x", 255 );
   TRACE1( "" );
   EXPECT_THAT( capture.messages( __PRETTY_FUNCTION__ ),
                ElementsAre( "true 7 -5 18446744073709551615 text", "literal string view",
                             "null " + Quill::displayAddress( entity.get() ), "ff", "" ) );
}

TEST_F( TraceTest, ArgumentsOfALevelThatIsOffAreNotEvaluated ) {
   TraceCapture capture;
   U32 evaluated = 0;
   Quill::traceLevelsIs( "TraceTestSm/0" );
   TRACE1( "%s", ++evaluated );
   EXPECT_EQ( evaluated, 0u );
   EXPECT_THAT( capture.lines(), IsEmpty() );
   TRACE0( "%s", ++evaluated );
   EXPECT_EQ( evaluated, 1u );
   EXPECT_EQ( capture.lines().size(), 1u );
}

TEST_F( TraceTest, LineTakesOneTimeFromTheMonotonicClock ) {
   struct Sink final : Quill::TraceSink {
      void line( Quill::TraceLine const & line ) noexcept override { time = line.time; }
      std::chrono::nanoseconds time{};
   } sink;
   TraceCapture const capture; // enables the levels, and restores everything at the end
   Quill::traceSinkIs( &sink );
   auto const now = [] {
      return std::chrono::nanoseconds( std::chrono::steady_clock::now().time_since_epoch() );
   };
   auto const before = now();
   TRACE0( "" );
   EXPECT_GE( sink.time, before );
   EXPECT_LE( sink.time, now() );
}

TEST_F( TraceTest, WithNoOutputNothingHappens ) {
   TraceCapture const capture;
   Quill::traceSinkIs( nullptr );
   TRACE0( "into the void" );
   EXPECT_THAT( capture.lines(), IsEmpty() );
}

// Both outputs of one process, as the daemon has them.
class BothTraces : public TraceTest {
 protected:
   BothTraces() { Blipline::ringIs( &ring ); }
   ~BothTraces() override { Blipline::ringIs( nullptr ); }

   alignas( 8 ) std::byte memory[ 1 << 16 ]{};
   Blipline::Ring ring{ memory };
};

TEST_F( BothTraces, GetTheSameTextAndTimeFromOneEvaluation ) {
   struct Sink final : Quill::TraceSink {
      void line( Quill::TraceLine const & line ) noexcept override {
         texts.emplace_back( line.text );
         times.push_back( line.time );
      }
      std::vector< std::string > texts;
      std::vector< std::chrono::nanoseconds > times;
   } sink;
   TraceCapture const capture;
   Quill::traceSinkIs( &sink );
   auto const entity = Quill::make< Traced >();
   U32 evaluated = 0;
   traceKeys( "red", 1 );
   TRACE1( "not initialized" );
   TRACE0( "%s of %s, %x, %s", ++evaluated, entity, 0xbeef, -1 );
   TRACE1( "100% %s %s", std::string( 2000, 'x' ), "the end" );

   EXPECT_EQ( evaluated, 1u );
   ASSERT_EQ( sink.texts.size(), 4u );
   EXPECT_TRUE( sink.texts.back().ends_with( "xxx the end" ) );
   Blipline::Reader reader( memory );
   Blipline::Line line;
   for ( std::size_t i = 0; i < sink.texts.size(); ++i ) {
      ASSERT_TRUE( reader.next( line ) );
      EXPECT_EQ( line.text.view(), sink.texts[ i ] );
      EXPECT_EQ( line.time, sink.times[ i ] );
      EXPECT_EQ( line.unit, "TraceTestSm" );
   }
   EXPECT_FALSE( reader.next( line ) );
   EXPECT_FALSE( reader.damaged() );
}

TEST_F( BothTraces, RingIsFedWithoutASink ) {
   TraceCapture const capture;
   Quill::traceSinkIs( nullptr );
   traceKeys( "blue", 9 );
   Blipline::Reader reader( memory );
   Blipline::Line line;
   ASSERT_TRUE( reader.next( line ) );
   EXPECT_TRUE( line.text.view().ends_with( ": vrf blue, 9" ) ) << line.text.view();
}

} // namespace
