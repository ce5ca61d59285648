// Who has a socket: one process at a time, and no other one removes it.
#include "varlink/UnixSocket.h"

#include "tests/support/WorkDirectory.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Varlink {
namespace {

class ListeningSocketTest : public ::testing::Test {
 protected:
   bool answers() const {
      try {
         connectTo( path );
         return true;
      } catch ( Quill::ErrnoException const & ) {
         return false;
      }
   }
   unsigned mode( std::string const & name ) const {
      struct stat status {};
      EXPECT_EQ( ::stat( name.c_str(), &status ), 0 );
      return status.st_mode & 07777;
   }

   Valen::Test::WorkDirectory const work;
   std::string const path = work / "run/socket";
};

TEST_F( ListeningSocketTest, ItAndItsDirectoryHaveTheirPermissionsWhateverTheUmask ) {
   for ( unsigned const umask : { 0u, 0077u } ) {
      auto const before = ::umask( umask );
      work.remove( "run" );
      ListeningSocket const socket( path );
      ::umask( before );
      EXPECT_EQ( mode( work / "run" ), 0755u );
      EXPECT_EQ( mode( path ), 0666u );
      EXPECT_EQ( mode( path + ".lock" ), 0600u & ~umask );
      EXPECT_TRUE( answers() );
   }
   EXPECT_TRUE( std::filesystem::is_empty( work / "run" ) );
}

TEST_F( ListeningSocketTest, OneOfAProcessThatWasKilledIsReplaced ) {
   auto const child = ::fork();
   if ( child == 0 ) {
      std::optional< ListeningSocket > socket( path );
      ::raise( SIGKILL );
   }
   ::waitpid( child, nullptr, 0 );
   ASSERT_TRUE( std::filesystem::exists( path ) );
   EXPECT_FALSE( answers() );
   ListeningSocket const socket( path );
   EXPECT_TRUE( answers() );
}

// Its lock was removed, so that a second process could replace the socket.
TEST_F( ListeningSocketTest, TheEndOfOneDoesNotRemoveAnotherOne ) {
   std::optional< ListeningSocket > first( path );
   std::filesystem::remove( path + ".lock" );
   std::filesystem::remove( path );
   ListeningSocket const second( path );
   first.reset();
   EXPECT_TRUE( answers() );
   EXPECT_TRUE( std::filesystem::exists( path + ".lock" ) );
}

TEST_F( ListeningSocketTest, ASymbolicLinkInPlaceOfTheLockIsNotFollowed ) {
   work.directory( "run" );
   work.link( work / "other", "run/socket.lock" );
   try {
      ListeningSocket const socket( path );
      FAIL() << "accepted";
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( e.text(), "cannot lock " + path + ".lock: Too many levels of symbolic links" );
   }
   EXPECT_FALSE( work.has( "other" ) );
}

TEST_F( ListeningSocketTest, ThereIsNoRoomForALongerNameInTheLongestPath ) {
   auto const longest = work / std::string( 106 - work.path().size(), 's' );
   ASSERT_EQ( longest.size(), 107u );
   {
      ListeningSocket const socket( longest );
      EXPECT_NO_THROW( connectTo( longest ) );
      EXPECT_THROW( ListeningSocket( std::string( longest ) ), Quill::ErrnoException );
   }
   EXPECT_THROW( ListeningSocket( longest + "s" ), Quill::ErrnoException );
   EXPECT_TRUE( std::filesystem::is_empty( work.path() ) );
}

// Whenever processes start at the same moment, one gets it, and its end is the only one that removes it.
TEST_F( ListeningSocketTest, OfSeveralThatStartAtTheSameMomentOneGetsIt ) {
   constexpr int processes = 4;
   for ( int round = 0; round < 50; ++round ) {
      int start[ 2 ];
      int result[ 2 ];
      int end[ 2 ];
      ASSERT_EQ( ::pipe( start ) + ::pipe( result ) + ::pipe( end ), 0 );
      for ( int process = 0; process < processes; ++process ) {
         if ( ::fork() == 0 ) {
            char byte = 0;
            ::close( start[ 1 ] );
            ::close( end[ 1 ] );
            [[maybe_unused]] auto got = ::read( start[ 0 ], &byte, 1 ); // until it is closed
            std::optional< ListeningSocket > socket;
            try {
               socket.emplace( path );
               byte = 'y';
            } catch ( Quill::ErrnoException const & ) {
               byte = 'n';
            }
            got = ::write( result[ 1 ], &byte, 1 );
            got = ::read( end[ 0 ], &byte, 1 );
            socket.reset();
            ::_exit( 0 );
         }
      }
      ::close( start[ 1 ] );
      std::string results;
      for ( int process = 0; process < processes; ++process ) {
         char byte = 0;
         ASSERT_EQ( ::read( result[ 0 ], &byte, 1 ), 1 );
         results += byte;
      }
      EXPECT_EQ( std::count( results.begin(), results.end(), 'y' ), 1 ) << "round " << round;
      EXPECT_TRUE( answers() );
      ::close( end[ 1 ] );
      while ( ::wait( nullptr ) > 0 ) {
      }
      EXPECT_FALSE( std::filesystem::exists( path ) );
      for ( auto const fd : { start[ 0 ], result[ 0 ], result[ 1 ], end[ 0 ] } ) {
         ::close( fd );
      }
   }
}

} // namespace
} // namespace Varlink
