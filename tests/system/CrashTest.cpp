// valend is killed during a shutdown and restarted, on the real kernel. Whenever that is, the link goes
// down, every frame reaches the far end, none is sent again once its sending is recorded, and the record
// says what happened. A start, a reload and a stop send nothing.
#include "tests/support/MetricsParser.h"
#include "tests/system/RunningDaemon.h"
#include "valend/shutdown/JournalEntry.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <iostream>
#include <set>

namespace Valen::Test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Valend::Phase;

class CrashTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      configure( "shutdown-delay-ms: " + std::to_string( delay.count() ) +
                 "\ninterfaces: [{name: Ethernet1, device: et1}]\n"
                 "agents: [{name: lldp, messages: {Ethernet1: [" +
                 Settings::toHex( testFrame( "one" ) ) + ", " +
                 Settings::toHex( testFrame( "two" ) ) + "]}}]\n" );
   }

   // Does not wait: valend resumes a shutdown at once, and the tests look at that.
   void start() { launch( { "--metrics-file", *work_ / "valen.prom" } ); }
   Json interface() const { return RunningDaemonTest::interface( "Ethernet1" ); }
   Json lastRecord() const { return RunningDaemonTest::lastRecord( "Ethernet1" ); }
   bool becomesReady() const { return RunningDaemonTest::becomesReady( "Ethernet1" ); }
   bool linkUp() const { return RunningDaemonTest::linkUp( *machine_, "et1" ); }
   // The last entry in the journal; nothing when it is empty.
   std::optional< Valend::JournalEntry > journalled() const {
      std::optional< Valend::JournalEntry > last;
      std::istringstream lines( work_->content( "state/shutdowns" ) );
      for ( std::string line; std::getline( lines, line ); ) {
         if ( auto entry = Valend::entryIn( line ) ) {
            last = std::move( entry );
         }
      }
      return last;
   }

   // Cuts the journal back to `end`, and changes the last entry of the rest.
   template < class Change > void rewriteJournal( std::size_t end, Change const & change ) const {
      auto const content = work_->content( "state/shutdowns" ).substr( 0, end );
      auto const last = content.rfind( '\n', content.size() - 2 ) + 1;
      auto entry = Valend::entryIn( content.substr( last, content.size() - 1 - last ) );
      ASSERT_TRUE( entry );
      change( *entry );
      std::ofstream( *work_ / "state/shutdowns", std::ios::binary )
         << content.substr( 0, last ) << Valend::lineOf( *entry ) << '\n';
   }

   static constexpr milliseconds delay{ 60 };
};

// What one crash left, and what the next start made of it.
struct Crash {
   std::optional< Valend::JournalEntry > found; // in the journal, at the next start
   std::vector< std::string > framesBefore;
   std::vector< std::string > framesAfter;
   Json record;
};

class KillTest : public CrashTest {
 protected:
   std::uintmax_t journalBytes() const {
      return std::filesystem::file_size( *work_ / "state/shutdowns" );
   }
   // Requests a shutdown, kills valend `after` that, and starts it again.
   Crash crash( microseconds after ) {
      Crash crash;
      Capture far( *neighbors_, "far1" );
      auto const before = journalBytes();
      Process asking( { VALENCTL, "--socket", *work_ / "sock", "shutdown", "Ethernet1" },
                      *work_ / "asking" );
      // It begins when it is recorded.
      while ( journalBytes() == before && asking.running() ) {
      }
      auto const end = Clock::now() + after;
      while ( Clock::now() < end ) {
      }
      kill();
      asking.wait();
      crash.found = journalled();
      crash.framesBefore = far.frames( 3, milliseconds( 20 ) );
      start();
      EXPECT_TRUE( eventually( [ & ] {
         auto const now = journalled();
         return now && now->phase == Phase::ended && !linkUp();
      } ) )
         << daemon_->err();
      crash.framesAfter = far.frames( 3, milliseconds( 20 ) );
      EXPECT_TRUE( eventually( [ & ] { return lastRecord().contains( "ending" ); } ) );
      crash.record = lastRecord();
      return crash;
   }

   // What must hold after every crash. Returns the phase that was recorded.
   static std::string judge( Crash const & crash ) {
      auto const whole = std::vector{ testFrame( "one" ), testFrame( "two" ) };
      std::set< std::string > reached( crash.framesBefore.begin(), crash.framesBefore.end() );
      reached.insert( crash.framesAfter.begin(), crash.framesAfter.end() );
      EXPECT_EQ( reached.size(), 2u ) << "every frame reached the far end";
      EXPECT_TRUE( crash.found ) << "it was recorded";
      auto const phase = crash.found ? crash.found->phase : Phase::requested;
      if ( phase >= Phase::held ) {
         EXPECT_EQ( crash.framesBefore, whole );
         EXPECT_THAT( crash.framesAfter, IsEmpty() ) << "recorded as sent";
      } else {
         EXPECT_EQ( crash.framesAfter, whole );
      }
      EXPECT_EQ( crash.record.value( "ending", "" ), "down" ) << crash.record;
      EXPECT_EQ( crash.record.value( "by", "" ), "root" );
      EXPECT_EQ( crash.record.value( "sent", 0 ), 2 );
      EXPECT_EQ( crash.record.value( "resumed", false ), phase != Phase::ended );
      auto const why = crash.record.value( "why", Json() ).dump();
      if ( phase == Phase::held ) {
         EXPECT_THAT( why, HasSubstr( "valend restarted " ) );
      } else if ( phase == Phase::sending ) {
         EXPECT_THAT( why, HasSubstr( "frames sent again: valend restarted while sending" ) );
      }
      return crash.found ? crash.found->toJson()[ "phase" ] : "none";
   }
};

// With a sanitizer a start takes ten times as long: fewer points then; the output says how many.
#if defined( __SANITIZE_ADDRESS__ )
constexpr int killPoints = 15;
#else
constexpr int killPoints = 50;
#endif

TEST_F( KillTest, WheneverValendIsKilledTheShutdownIsFinished ) {
   std::map< std::string, int > phases;
   start();
   for ( int point = 0; point < killPoints; ++point ) {
      ASSERT_TRUE( becomesReady() ) << daemon_->err();
      // A third is in the first half millisecond, which has most phases; the others are spread over
      // the delay and a little more.
      auto const early = point % 3 == 0;
      auto const after = early ? microseconds( 500 ) * point / killPoints
                               : microseconds( ( delay + milliseconds( 4 ) ) ) * point / killPoints;
      SCOPED_TRACE( "killed " + std::to_string( after.count() ) + " us into the shutdown" );
      ++phases[ judge( crash( after ) ) ];
      ASSERT_FALSE( HasFatalFailure() );
      ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   }
   std::cout << killPoints << " crashes, by the phase that was recorded:";
   for ( auto const & [ phase, count ] : phases ) {
      std::cout << " " << phase << " " << count;
   }
   std::cout << std::endl;
   EXPECT_GE( phases[ "held" ], killPoints / 3 );
}

// Some phases are too short to be hit: the journal is cut back to each of them, as if valend had been
// killed there: requested, sending, held, setting-down. The frames leave at once, so none is flushing.
TEST_F( KillTest, EachPhaseIsFinished ) {
   start();
   for ( std::size_t lines = 1; lines <= 4; ++lines ) {
      SCOPED_TRACE( "killed after line " + std::to_string( lines ) );
      ASSERT_TRUE( becomesReady() );
      Crash crash;
      {
         Capture far( *neighbors_, "far1" );
         auto const size = work_->content( "state/shutdowns" ).size();
         ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
         kill();
         auto const content = work_->content( "state/shutdowns" );
         auto end = size;
         for ( std::size_t line = 0; line < lines; ++line ) {
            end = content.find( '\n', end ) + 1;
         }
         // The link is set up for the next run alone: to valend it must look as if it was never down.
         rewriteJournal( end, []( auto & entry ) { entry.mark.reset(); } );
         machine_->ip( "link set et1 up" );
         crash.found = journalled();
         crash.framesBefore = far.frames( 3, milliseconds( 20 ) );
         start();
         ASSERT_TRUE( eventually( [ & ] {
            auto const now = journalled();
            return now && now->phase == Phase::ended && !linkUp();
         } ) )
            << daemon_->err();
         crash.framesAfter = far.frames( 3, milliseconds( 20 ) );
         ASSERT_TRUE( eventually( [ & ] { return lastRecord().contains( "ending" ); } ) );
         crash.record = lastRecord();
      }
      judge( crash );
      ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   }
}

// --- A link that is used again -------------------------------------------------------------------

class ExpiryTest : public CrashTest {
 protected:
   // Starts a shutdown and kills valend in mid-delay.
   void killInMidDelay() {
      configure( "shutdown-delay-ms: 5000\ninterfaces: [{name: Ethernet1, device: et1}]\n"
                 "agents: [{name: lldp, messages: {Ethernet1: [" +
                 Settings::toHex( testFrame( "one" ) ) + "]}}]\n" );
      start();
      ASSERT_TRUE( becomesReady() );
      ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
      kill();
      ASSERT_EQ( journalled()->phase, Phase::held );
   }
   // Starts valend again, which must leave the link up.
   void expectExpired( std::string const & why ) {
      start();
      ASSERT_TRUE( eventually( [ & ] { return lastRecord().contains( "ending" ); } ) )
         << daemon_->err();
      EXPECT_EQ( lastRecord()[ "ending" ], "expired" );
      EXPECT_THAT( lastRecord()[ "why" ].dump(), HasSubstr( why ) );
      EXPECT_TRUE( logged( "expired; link left unchanged" ) ) << daemon_->err();
      EXPECT_FALSE( interface().value( "shuttingDown", true ) );
      EXPECT_TRUE( linkUp() );
      // It is over for the next start as well.
      kill();
      start();
      ASSERT_TRUE( becomesReady() );
      EXPECT_FALSE( interface().value( "shuttingDown", true ) );
      EXPECT_TRUE( linkUp() );
   }
};

TEST_F( ExpiryTest, ALinkThatWasSetUpSinceTheCrashStaysUp ) {
   killInMidDelay();
   machine_->ip( "link set et1 down" );
   machine_->ip( "link set et1 up" );
   expectExpired( "link set up since valend stopped" );
}

TEST_F( ExpiryTest, AfterALongStopTheLinkStaysUp ) {
   killInMidDelay();
   rewriteJournal( std::string::npos, []( auto & entry ) {
      entry.hold->from -= std::chrono::hours( 1 );
      entry.hold->until -= std::chrono::hours( 1 );
   } );
   expectExpired( " s after the end of the delay" );
}

// --- Without a shutdown --------------------------------------------------------------------------

TEST_F( CrashTest, StartReloadStopAndRestartSendNothingAndChangeNoLink ) {
   Capture far( *neighbors_, "far1" );
   start();
   ASSERT_TRUE( becomesReady() );
   daemon_->signal( SIGHUP );
   ASSERT_TRUE( logged( "reloaded: " ) );
   daemon_->signal( SIGTERM );
   EXPECT_EQ( daemon_->wait(), 0 );
   start();
   ASSERT_TRUE( becomesReady() );
   kill();
   start();
   ASSERT_TRUE( becomesReady() );
   EXPECT_TRUE( linkUp() );
   // The frames of a shutdown are the first that arrive: none were sent before.
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_THAT( far.frames( 2 ), ElementsAre( testFrame( "one" ), testFrame( "two" ) ) );
}

TEST_F( CrashTest, ALinkSetDownOutsideValendIsShownAndRecorded ) {
   start();
   ASSERT_TRUE( becomesReady() );
   Capture far( *neighbors_, "far1" );
   machine_->ip( "link set et1 down" );
   ASSERT_TRUE( eventually( [ & ] { return interface().value( "withoutGoodbye", false ); } ) );
   EXPECT_EQ( lastRecord()[ "ending" ], "went-down" );
   EXPECT_TRUE( logged( "Ethernet1: link set down outside valend; no goodbye frames sent\n" ) )
      << daemon_->err();
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_FALSE( interface().value( "withoutGoodbye", true ) );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   // The first frames that arrive are of this shutdown: none were sent before.
   EXPECT_THAT( far.frames( 2 ), ElementsAre( testFrame( "one" ), testFrame( "two" ) ) );
   ASSERT_TRUE( eventually( [ & ] { return interface().value( "link", "" ) == "down"; } ) )
      << "the kernel has reported it";
   EXPECT_EQ( lastRecord()[ "ending" ], "down" )
      << "what valend did itself is not recorded as outside";
   EXPECT_FALSE( interface().value( "withoutGoodbye", true ) );
}

// --- Published frames ----------------------------------------------------------------------------

TEST_F( CrashTest, KeptFramesSurviveARestartAndOthersDoNot ) {
   start();
   ASSERT_TRUE( becomesReady() );
   auto const three = Settings::toHex( testFrame( "three" ) );
   ASSERT_EQ( ctl( { "messages", "add", "radv", "Ethernet1", three } ).status, 0 );
   Process bound( { VALENCTL, "--socket", *work_ / "sock", "messages", "add", "bound", "Ethernet1",
                    three, "--while-running" },
                  *work_ / "bound" );
   ASSERT_TRUE( eventually( [ & ] { return interface()[ "frames" ].size() == 3; } ) );
   kill();
   bound.wait();
   start();
   ASSERT_TRUE( becomesReady() );
   EXPECT_EQ( interface()[ "frames" ].size(), 2u );
   Capture far( *neighbors_, "far1" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_THAT( far.frames( 3 ),
                ElementsAre( testFrame( "one" ), testFrame( "two" ), testFrame( "three" ) ) );
}

// --- An unusable state directory -----------------------------------------------------------------

constexpr char const * lostOnRestart = "; a shutdown in progress would be lost on restart";

TEST_F( CrashTest, WithoutAStateDirectoryShutdownsWorkAndTheConditionIsShown ) {
   std::ofstream( *work_ / "state" ) << "a file";
   start();
   ASSERT_TRUE( becomesReady() );
   auto const why = "cannot open " + *work_ / "state" + ": Not a directory" + lostOnRestart;
   EXPECT_TRUE( logged( "journal: " + why ) ) << daemon_->err();
   EXPECT_EQ( Json::parse( ctl( { "status", "--json" } ).out )[ "conditions" ][ 0 ][ "text" ],
              why );
   Capture far( *neighbors_, "far1" );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp() );
   EXPECT_EQ( far.frames( 2 ).size(), 2u );
}

TEST_F( CrashTest, OnAFullDiskShutdownsWorkAndTheConditionIsShown ) {
   run( "mkdir " + *work_ / "state" );
   run( "mount -t tmpfs -o size=64k none " + *work_ / "state" );
   run( "dd if=/dev/zero of=" + *work_ / "state/filler bs=4k count=16 2>/dev/null" );
   start();
   bool const ready = becomesReady();
   auto const status = Json::parse( ctl( { "status", "--json" } ).out, nullptr, false );
   EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
   EXPECT_FALSE( linkUp() );
   kill();
   run( "umount " + *work_ / "state" );
   EXPECT_TRUE( ready );
   EXPECT_EQ( status[ "conditions" ][ 0 ].value( "text", "" ),
              "cannot write " + *work_ / "state/shutdowns" + ": No space left on device" +
                 lostOnRestart );
}

// --- Metrics -------------------------------------------------------------------------------------

TEST_F( CrashTest, TheMetricsFileCountsTheShutdowns ) {
   auto const * const missing = missingMetricsParser();
   if ( missing && !std::getenv( "CI" ) ) {
      GTEST_SKIP() << "a parser of the format is missing: " << missing;
   }
   start();
   ASSERT_TRUE( becomesReady() );
   for ( int i = 0; i < 3; ++i ) {
      EXPECT_EQ( ctl( { "shutdown", "Ethernet1", "--wait" } ).status, 0 );
      EXPECT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   }
   std::string samples;
   EXPECT_TRUE( eventually( [ & ] {
      samples = parsedMetrics( *work_ / "valen.prom" );
      return samples.find( "counter valen_shutdowns_total [('result', 'down')] 3.0\n" ) !=
             std::string::npos;
   } ) )
      << samples;
   for ( std::string const line :
         { "counter valen_frames_sent_total [('agent', 'lldp')] 6.0\n",
           "histogram valen_shutdown_held_seconds_bucket [('le', '+Inf')] 3.0\n",
           "histogram valen_shutdown_held_seconds_count [] 3.0\n",
           "gauge valen_interfaces [] 1.0\n", "gauge valen_interfaces_ready [] 1.0\n",
           "gauge valen_shutdowns_running [] 0.0\n" } ) {
      EXPECT_THAT( samples, HasSubstr( line ) );
   }
   EXPECT_EQ( promtoolFindings( *work_ / "valen.prom" ), "" );
}

} // namespace
} // namespace Valen::Test
