// valend with outputs that are not read: standard error, the system journal, the service manager.
#include "tests/support/NotifySocket.h"
#include "tests/system/RunningDaemon.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace Valen::Test {
namespace {

using std::chrono::seconds;
using ::testing::HasSubstr;

constexpr char const * journalDirectory = "/run/systemd/journal";

// Two ends of a pipe that holds 4 KiB.
struct Pipe {
   Pipe() {
      int ends[ 2 ] = { -1, -1 };
      EXPECT_EQ( ::pipe2( ends, O_CLOEXEC ), 0 );
      reading = Linux::Fd( ends[ 0 ] );
      writing = Linux::Fd( ends[ 1 ] );
      EXPECT_GT( ::fcntl( reading.get(), F_SETPIPE_SZ, 4096 ), 0 );
   }
   // Reads until a line has `text`, for a generous time. Returns all that was read.
   std::string readUntil( std::string const & text ) const {
      std::string all;
      char buffer[ 65536 ];
      pollfd ready{ reading.get(), POLLIN, 0 };
      while ( all.find( text ) == all.npos && ::poll( &ready, 1, 30'000 ) > 0 ) {
         auto const got = ::read( reading.get(), buffer, sizeof buffer );
         if ( got <= 0 ) {
            break;
         }
         all.append( buffer, static_cast< std::size_t >( got ) );
      }
      return all;
   }

   Linux::Fd reading;
   Linux::Fd writing;
};

class OutputTest : public RunningDaemonTest {
 protected:
   ~OutputTest() override {
      ::unsetenv( "NOTIFY_SOCKET" );
      ::unsetenv( "JOURNAL_STREAM" );
   }

   // Starts valend with its standard error in `pipe`, and waits until it answers.
   void startInto( Pipe const & pipe, std::vector< std::string > const & more ) {
      configure( config( 0 ) );
      launch( more, pipe.writing.get() );
      ASSERT_TRUE( eventually( [ this ] { return ctl( { "status" } ).status == 0; } ) );
      ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   }
   // One shutdown, and the link is set up again. Returns whether both were done in a generous time.
   bool cycle() const {
      return ctl( { "shutdown", "Ethernet1", "--wait" } ).status == 0 &&
             ctl( { "enable", "Ethernet1" } ).status == 0;
   }
   // Makes valend write lines, until some are dropped: each reload of many interfaces is traced.
   void fill() {
      auto many = config( 0 );
      auto const agents = many.find( "agents:" );
      std::string interfaces;
      for ( int i = 0; i < 300; ++i ) {
         interfaces += "- {name: Other" + std::to_string( i ) + "}\n";
      }
      many.insert( agents, interfaces );
      for ( int i = 0; i < 100 && metric( "valen_log_lines_dropped_total" ) == 0; ++i ) {
         configure( i % 2 ? config( 0 ) : many );
         ASSERT_EQ( ctl( { "reload" } ).status, 0 );
      }
      EXPECT_GT( metric( "valen_log_lines_dropped_total" ), 0u );
      EXPECT_TRUE( cycle() );
   }
   U64 metric( std::string const & name ) const {
      auto const text = ctl( { "metrics" } ).out;
      auto const at = text.find( "\n" + name + " " );
      return at == text.npos ? 0 : std::stoull( text.substr( at + name.size() + 2 ) );
   }
   std::string conditions() const {
      auto const status = Json::parse( ctl( { "status", "--json" } ).out, nullptr, false );
      return status.value( "conditions", Json() ).dump();
   }
};

TEST_F( OutputTest, APipeThatIsNotReadStopsNothing ) {
   Pipe const pipe;
   startInto( pipe, { "--trace", "*/0-9" } ); // many lines on standard error
   // The queue holds 1 MiB.
   fill();
   EXPECT_TRUE( eventually( [ this ] {
      return conditions().find( "standard error is not read; lines are dropped" ) !=
             std::string::npos;
   } ) )
      << conditions();
   // A hold ends in time.
   configure( config( 300 ) );
   ASSERT_EQ( ctl( { "reload" } ).status, 0 );
   ASSERT_TRUE( becomesReady( "Ethernet1" ) );
   ASSERT_TRUE( cycle() );
   EXPECT_GE( lastRecord( "Ethernet1" )[ "heldMs" ], 300 );
   EXPECT_LT( lastRecord( "Ethernet1" )[ "heldMs" ], 2000 );

   std::string const recovered = "valend: log: recovered\n";
   auto all = pipe.readUntil( " lines dropped: standard error was not read\n" );
   EXPECT_THAT( all, HasSubstr( " lines dropped: standard error was not read\n" ) );
   if ( all.find( recovered ) == std::string::npos ) { // else it came with the rest
      all = pipe.readUntil( recovered );
   }
   EXPECT_THAT( all, HasSubstr( recovered ) );
}

TEST_F( OutputTest, ItEndsThoughStandardErrorIsNotRead ) {
   Pipe const pipe;
   startInto( pipe, { "--trace", "*/0-9" } );
   for ( int i = 0; i < 5; ++i ) {
      ASSERT_TRUE( cycle() );
   }
   daemon_->signal( SIGTERM );
   EXPECT_TRUE( eventually( [ this ] { return !daemon_->running(); } ) );
   EXPECT_EQ( daemon_->wait(), 0 );
}

TEST_F( OutputTest, AJournalThatIsStuckStopsNothing ) {
   if ( std::filesystem::exists( journalDirectory ) ) {
      GTEST_SKIP() << "outside scripts/sandbox: " << journalDirectory << " is the machine's";
   }
   std::filesystem::create_directories( journalDirectory );
   Pipe const pipe;
   NotifySocket const journal( journalDirectory + std::string( "/socket" ) ); // receives nothing
   struct stat status;
   ASSERT_EQ( ::fstat( pipe.writing.get(), &status ), 0 );
   ::setenv( "JOURNAL_STREAM",
             ( std::to_string( status.st_dev ) + ":" + std::to_string( status.st_ino ) ).c_str(),
             1 );
   startInto( pipe, { "--trace", "*/0-9" } );
   fill();
   EXPECT_TRUE( eventually( [ this ] {
      return conditions().find( "the system journal does not read; lines are dropped" ) !=
             std::string::npos;
   } ) )
      << conditions();
   std::filesystem::remove( journal.path() );
   std::filesystem::remove( journalDirectory );
}

TEST_F( OutputTest, AServiceManagerThatDoesNotReadStopsNothing ) {
   NotifySocket const manager( *work_ / "notify" ); // receives nothing before the end
   ::setenv( "NOTIFY_SOCKET", manager.path().c_str(), 1 );
   start( config( 0 ) );
   // Each sends two notifications; the socket's queue has room for fewer (net.unix.max_dgram_qlen).
   for ( int i = 0; i < 20; ++i ) {
      ASSERT_EQ( ctl( { "reload" } ).status, 0 ) << i;
   }
   ASSERT_TRUE( cycle() );
   configure( "interfaces: x" );
   ASSERT_EQ( ctl( { "reload" } ).status, 1 );
   std::string received;
   std::string last;
   do {
      received += last;
      last = manager.received();
   } while ( !last.empty() && last.find( "rejected" ) == last.npos );
   EXPECT_EQ( last, "READY=1\nSTATUS=Configuration rejected (1 error); keeping the previous one" );
   EXPECT_THAT( received, HasSubstr( "RELOADING=1\n" ) );
}

} // namespace
} // namespace Valen::Test
