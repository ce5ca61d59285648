// The state directory on a full disk, which is a file system of its own: nothing that was asked is lost, and no
// link that an operator has enabled is taken down by a restart.
#include "tests/system/RunningDaemon.h"
#include "valend/shutdown/JournalEntry.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <sys/mount.h>

namespace Valen::Test {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Valend::Phase;

class FullDiskTest : public RunningDaemonTest {
 protected:
   void SetUp() override {
      RunningDaemonTest::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      for ( auto const * netNs : { &*machine_, &*neighbors_ } ) {
         run( "ip netns exec " + netNs->text() + " sysctl -q -w net.ipv6.conf.all.disable_ipv6=0" );
      }
      run( "mkdir -m 700 " + state() );
      run( "mount -t tmpfs -o size=512k,mode=700 none " + state() );
      configure( "shutdown-delay-ms: 60000\ninterfaces: [{name: Ethernet1, device: et1}, "
                 "{name: Ethernet2, device: absent}]\n"
                 "agents: [{name: lldp, messages: {Ethernet1: [" +
                 Settings::toHex( testFrame( "one" ) ) + "]}}]\n" );
   }
   void TearDown() override {
      daemon_.reset();
      ::umount2( state().c_str(), MNT_DETACH );
   }

   std::string state() const { return *work_ / "state"; }
   bool startReady() {
      launch();
      return becomesReady( "Ethernet1" );
   }
   // A journal whose last page has room for so many bytes.
   void writeJournal( std::size_t room ) const {
      Valend::JournalEntry entry;
      entry.id = 1;
      entry.phase = Phase::ended;
      entry.record.interface = "Ethernet9";
      std::string const header = "valen journal of shutdowns, 1\n";
      auto const size = header.size() + Valend::lineOf( entry ).size() + 1;
      entry.record.why =
         std::string( 4096 - room - size, 'x' ); // in place of null: four bytes less
      work_->write( "state/shutdowns", header + Valend::lineOf( entry ) + '\n' );
   }
   // Takes all room that is left.
   void fill() const {
      (void)std::system(
         ( "dd if=/dev/zero of=" + state() + "/filler bs=4k 2>/dev/null" ).c_str() );
   }
   void makeRoom() const { run( "rm " + state() + "/filler" ); }
   bool linkUp() const { return RunningDaemonTest::linkUp( *machine_, "et1" ); }
   // That of the journal: others write less often.
   bool hasCondition() const {
      auto const status = Json::parse( ctl( { "status", "--json" } ).out, nullptr, false );
      auto const conditions = status.value( "conditions", Json::array() );
      return std::any_of( conditions.begin(), conditions.end(), []( auto const & condition ) {
         return condition[ "name" ] == "journal";
      } );
   }
   // The last entry of Ethernet1 in the journal.
   std::optional< Valend::JournalEntry > journalled() const {
      std::optional< Valend::JournalEntry > last;
      std::istringstream lines( work_->content( "state/shutdowns" ) );
      for ( std::string line; std::getline( lines, line ); ) {
         if ( auto entry = Valend::entryIn( line );
              entry && entry->record.interface == "Ethernet1" ) {
            last = std::move( entry );
         }
      }
      return last;
   }
   // Kills valend and starts it again: no goodbye leaves, and the link stays up.
   void restartChangesNothing() {
      kill();
      Capture far( *neighbors_, "far1" );
      ASSERT_TRUE( startReady() ) << daemon_->err();
      EXPECT_FALSE( interface( "Ethernet1" ).value( "shuttingDown", true ) );
      EXPECT_THAT( far.frames( 1, milliseconds( 200 ) ), IsEmpty() );
      EXPECT_TRUE( linkUp() );
      EXPECT_THAT( daemon_->err(), Not( HasSubstr( "resuming" ) ) );
   }
};

// The disk gets full in mid-delay, and the operator enables the interface: the end is recorded in the room that
// is reserved for it.
TEST_F( FullDiskTest, TheEndOfAShutdownHasItsRoom ) {
   ASSERT_TRUE( startReady() );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   fill();
   for ( int other = 0; other < 8; ++other ) { // they would fill the last page
      ctl( { "shutdown", "Ethernet2", "--wait" } );
   }
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_EQ( journalled()->phase, Phase::ended );
   kill();
   makeRoom();
   ASSERT_TRUE( startReady() );
   EXPECT_EQ( lastRecord( "Ethernet1" ).value( "ending", "" ), "aborted" );
   restartChangesNothing();
}

// It is full before: the shutdown is not recorded at all, rather than without its end, and is owed.
TEST_F( FullDiskTest, AShutdownThatHasNoRoomIsRecordedWhenThereIsSome ) {
   writeJournal( 0 );
   ASSERT_TRUE( startReady() );
   fill();
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   EXPECT_FALSE( journalled() );
   EXPECT_TRUE( hasCondition() ) << "at once";
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   restartChangesNothing();
   EXPECT_EQ( lastRecord( "Ethernet1" ), Json::object() ) << "it was lost with the process";

   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   EXPECT_FALSE( journalled() );
   makeRoom();
   EXPECT_TRUE( eventually( [ & ] { return journalled() && !hasCondition(); } ) )
      << "without another shutdown";
   EXPECT_EQ( journalled()->phase, Phase::ended );
   EXPECT_TRUE( logged( "journal: recovered" ) ) << daemon_->err();
   restartChangesNothing();
   EXPECT_EQ( lastRecord( "Ethernet1" ).value( "ending", "" ), "aborted" );
}

// Two lines would fit, but not the last one.
TEST_F( FullDiskTest, AShutdownIsNotRecordedWithoutRoomForItsEnd ) {
   writeJournal( 1400 );
   ASSERT_TRUE( startReady() );
   fill();
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   EXPECT_FALSE( journalled() );
   EXPECT_TRUE( hasCondition() );
}

// As a version that reserved no room left it.
TEST_F( FullDiskTest, AnUnfinishedShutdownWithANewerOneIsNotResumed ) {
   ASSERT_TRUE( startReady() );
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   ASSERT_EQ( journalled()->phase, Phase::held );
   auto const held = work_->content( "state/shutdowns" );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   auto const end = work_->content( "state/shutdowns" ).size();
   ASSERT_EQ( ctl( { "shutdown", "Ethernet1" } ).status, 0 );
   ASSERT_EQ( ctl( { "enable", "Ethernet1" } ).status, 0 );
   kill();
   work_->write( "state/shutdowns", held + work_->content( "state/shutdowns" ).substr( end ) );
   restartChangesNothing();
   EXPECT_THAT( ctl( { "history", "Ethernet1" } ).out,
                HasSubstr( "its end was not recorded, and the interface was used since" ) );
   restartChangesNothing();
}

} // namespace
} // namespace Valen::Test
