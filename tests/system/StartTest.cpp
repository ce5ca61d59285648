// Which process is the daemon, and what it creates: of several that start at the same moment one lives.
#include "tests/system/RunningDaemon.h"

#include <gmock/gmock.h>
#include <memory>
#include <sys/stat.h>

namespace Valen::Test {
namespace {

using ::testing::HasSubstr;

// What two daemons have in common.
enum class Shared { socketAndState, socket, state };

class StartTest : public RunningDaemonTest {
 protected:
   // They are short, and most have one winner by chance.
   static constexpr int races = 20;

   struct Racer {
      std::string socket;
      std::unique_ptr< Process > process;
   };

   Racer startOne( Shared shared, std::string const & name ) const {
      auto const at = shared == Shared::state ? *work_ / "sock-" + name : socket();
      auto const state = shared == Shared::socket ? *work_ / name : *work_ / "state";
      return { at, std::make_unique< Process >(
                      std::vector< std::string >{ VALEND, "--config", *work_ / "valen.yaml",
                                                  "--socket", at, "--state-directory", state },
                      *work_ / "log-" + name, &*machine_ ) };
   }
   bool answers( Racer const & racer ) const {
      Process command( { VALENCTL, "--socket", racer.socket, "status" }, *work_ / "ctl" );
      return command.wait() == 0;
   }
   // The loser says `why`.
   void race( Shared shared, std::string const & why ) const {
      auto first = startOne( shared, "a" );
      auto second = startOne( shared, "b" );
      ASSERT_TRUE(
         eventually( [ & ] { return !first.process->running() || !second.process->running(); } ) )
         << "both live";
      bool const firstLives = first.process->running();
      auto & winner = firstLives ? first : second;
      auto & loser = firstLives ? second : first;
      EXPECT_EQ( loser.process->wait(), 1 );
      EXPECT_THAT( loser.process->err(), HasSubstr( "cannot start: " ) );
      EXPECT_THAT( loser.process->err(), HasSubstr( why ) );
      EXPECT_TRUE( eventually( [ & ] { return answers( winner ); } ) ) << winner.process->err();
      EXPECT_TRUE( winner.process->running() );
      winner.process->signal( SIGTERM );
      EXPECT_EQ( winner.process->wait(), 0 );
   }
   void raceAll( Shared shared, std::string const & why ) const {
      configure( "interfaces: [{name: Ethernet1, device: et1}]\n" );
      for ( int number = 0; number < races && !HasFailure(); ++number ) {
         SCOPED_TRACE( "race " + std::to_string( number ) );
         race( shared, why );
      }
   }
};

TEST_F( StartTest, OfTwoThatStartAtTheSameMomentOneLives ) {
   raceAll( Shared::socketAndState, *work_ / "state" +
                                       " is used by another valend process; stop it, or set "
                                       "another state-directory\n" );
}

TEST_F( StartTest, OfTwoAtOneSocketOneLives ) {
   raceAll( Shared::socket, "another process is listening at " + socket() +
                               " (stop it, or set another socket): Address already in use\n" );
}

TEST_F( StartTest, OfTwoInOneStateDirectoryOneLives ) {
   raceAll( Shared::state, *work_ / "state" + " is used by another valend process" );
}

class UmaskTest : public RunningDaemonTest {
 protected:
   unsigned mode( std::string const & name ) const {
      struct stat status {};
      EXPECT_EQ( ::stat( ( *work_ / name ).c_str(), &status ), 0 );
      return status.st_mode & 07777;
   }
};

TEST_F( UmaskTest, DirectoriesHaveTheirPermissionsWhateverTheUmask ) {
   configure( "interfaces: [{name: Ethernet1, device: et1}]\n" );
   auto const before = ::umask( 0 );
   daemon_.emplace( std::vector< std::string >{ VALEND, "--config", *work_ / "valen.yaml",
                                                "--socket", *work_ / "run/valen/sock",
                                                "--state-directory", *work_ / "lib/valen" },
                    *work_ / "daemon", &*machine_ );
   ::umask( before );
   EXPECT_TRUE( logged( "ready: " ) );
   EXPECT_EQ( mode( "run" ), 0755u );
   EXPECT_EQ( mode( "run/valen" ), 0755u );
   EXPECT_EQ( mode( "lib" ), 0755u );
   EXPECT_EQ( mode( "lib/valen" ), 0700u );
   EXPECT_EQ( mode( "lib/valen/shutdowns" ), 0600u );
   EXPECT_EQ( mode( "run/valen/sock" ), 0666u );
}

} // namespace
} // namespace Valen::Test
