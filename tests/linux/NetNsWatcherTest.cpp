#include "linux/NetNsWatcher.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"
#include "tests/support/WorkDirectory.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/mount.h>

namespace Valen::Linux {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Valen::Test::run;
using Valen::Test::TestNetNs;

char const * text( NetNsWatcher::Change change ) {
   switch ( change ) {
   case NetNsWatcher::Change::appeared:
      return "appeared";
   case NetNsWatcher::Change::gone:
      return "gone";
   case NetNsWatcher::Change::replaced:
      return "replaced";
   }
   return "?";
}

// Watches /run/netns, or a directory of the test.
class NetNsWatcherTest : public Valen::Test::NetworkTest {
 protected:
   ~NetNsWatcherTest() override {
      watcher_.reset();
      for ( auto const & file : mounted_ ) {
         ::umount2( file.c_str(), MNT_DETACH );
      }
   }

   // Reports only the namespaces of this test: others are created and deleted in /run/netns as well.
   void watch( std::vector< std::string > directories ) {
      watcher_.emplace(
         loop_, NetNsDirectories( std::move( directories ) ),
         [ this ]( Corvid::NamespaceName const & name, NetNsWatcher::Change change ) {
            if ( name.view().starts_with( own_ ) || watchesOwnDirectory_ ) {
               told_.push_back( name.stdString() + " " + text( change ) );
            }
         } );
   }
   void watchUsual() { watch( { NetNsDirectories::usual } ); }
   void watchOwn( std::string const & below = "" ) {
      watchesOwnDirectory_ = true;
      watch( { directory_.path() + below } );
   }

   bool toldCount( std::size_t count ) {
      return turnUntil( [ & ] { return told_.size() >= count; } );
   }
   bool knows( std::string_view name ) const {
      return watcher_->known().contains( Corvid::NamespaceName( name ) );
   }

   std::string file( std::string const & name ) const { return directory_ / name; }
   void makeFile( std::string const & name ) { std::ofstream( file( name ) ).flush(); }
   void mount( std::string const & source, std::string const & name ) {
      mounted_.push_back( file( name ) );
      ASSERT_EQ( ::mount( source.c_str(), file( name ).c_str(), "none", MS_BIND, nullptr ), 0 );
   }
   void unmount( std::string const & name ) {
      ASSERT_EQ( ::umount2( file( name ).c_str(), MNT_DETACH ), 0 );
   }

   std::string const own_ = "vt-" + std::to_string( ::getpid() ) + "-";
   Valen::Test::WorkDirectory const directory_;
   std::vector< std::string > mounted_;
   std::vector< std::string > told_;
   std::optional< NetNsWatcher > watcher_;
   bool watchesOwnDirectory_ = false;
};

TEST_F( NetNsWatcherTest, ExistingNamespacesAreKnownAndNotReported ) {
   TestNetNs const blue;
   watchUsual();
   settle();
   EXPECT_THAT( told_, ElementsAre() );
   ASSERT_TRUE( knows( blue.text() ) );
   EXPECT_EQ( watcher_->known().at( blue.name() ), *NetNsDirectories().identity( blue.name() ) );
}

TEST_F( NetNsWatcherTest, ACreatedNamespaceIsReported ) {
   watchUsual();
   TestNetNs const blue;
   ASSERT_TRUE( toldCount( 1 ) );
   settle();
   EXPECT_THAT( told_, ElementsAre( blue.text() + " appeared" ) );
   EXPECT_TRUE( knows( blue.text() ) );
}

TEST_F( NetNsWatcherTest, ADeletedNamespaceIsReported ) {
   TestNetNs blue;
   watchUsual();
   blue.destroy();
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( blue.text() + " gone" ) );
   EXPECT_FALSE( knows( blue.text() ) );
}

TEST_F( NetNsWatcherTest, ANamespaceRecreatedBetweenTwoTurnsIsReportedAsReplaced ) {
   TestNetNs blue;
   watchUsual();
   auto const keepsOldAlive = NetNsDirectories().open( blue.name() );
   blue.destroy();
   blue.create();
   ASSERT_TRUE( toldCount( 1 ) );
   settle();
   EXPECT_THAT( told_, ElementsAre( blue.text() + " replaced" ) );
   EXPECT_NE( watcher_->known().at( blue.name() ), keepsOldAlive.identity );
}

TEST_F( NetNsWatcherTest, AFileThatBecomesANamespaceIsReported ) {
   watchOwn();
   makeFile( "late" );
   settle( 30ms );
   EXPECT_THAT( told_, ElementsAre() );
   EXPECT_FALSE( knows( "late" ) );
   mount( "/proc/self/ns/net", "late" ); // which inotify does not report
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

TEST_F( NetNsWatcherTest, AFileFromBeforeTheWatcherThatBecomesANamespaceIsReported ) {
   makeFile( "late" );
   watchOwn();
   mount( "/proc/self/ns/net", "late" );
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

// Nothing reports that: the file to which the link leads is elsewhere, and nothing is mounted.
TEST_F( NetNsWatcherTest, ALinkFromBeforeTheWatcherThatLeadsToANamespaceLaterIsReported ) {
   Valen::Test::WorkDirectory const elsewhere;
   elsewhere.write( "late", "" );
   directory_.link( elsewhere / "late", "late" );
   watchOwn();
   elsewhere.link( "/proc/self/ns/net", "new" );
   std::filesystem::rename( elsewhere / "new", elsewhere / "late" );
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

TEST_F( NetNsWatcherTest, ANamespaceForWhichNoDescriptorIsLeftIsReportedLater ) {
   watchOwn();
   {
      Valen::Test::DescriptorLimit const limit( Valen::Test::limitLeaving( 0 ) );
      directory_.link( "/proc/self/ns/net", "late" );
      settle( 30ms );
      EXPECT_THAT( told_, ElementsAre() );
   }
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

TEST_F( NetNsWatcherTest, ADeletedFileThatWasNeverANamespaceIsForgotten ) {
   watchOwn();
   makeFile( "never" );
   settle( 20ms );
   EXPECT_GE( loop_.scheduler()->armedTasks(), 1u ); // two, if another process mounts something
   std::filesystem::remove( file( "never" ) );
   ASSERT_TRUE( turnUntil( [ & ] { return loop_.scheduler()->armedTasks() == 0; } ) );
   EXPECT_THAT( told_, ElementsAre() );
}

TEST_F( NetNsWatcherTest, ADirectoryThatIsCreatedLaterIsWatched ) {
   watchOwn( "/a/b" );
   std::filesystem::create_directory( file( "a" ) );
   settle( 20ms );
   std::filesystem::create_directory( file( "a/b" ) );
   settle( 20ms );
   makeFile( "a/b/late" );
   mount( "/proc/self/ns/net", "a/b/late" );
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

TEST_F( NetNsWatcherTest, ADirectoryThatIsMovedIntoPlaceIsReportedWithItsNamespaces ) {
   watchOwn( "/a/b" );
   std::filesystem::create_directories( file( "a/b" ) );
   makeFile( "a/b/late" );
   mount( "/proc/self/ns/net", "a/b/late" );
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "late appeared" ) );
}

TEST_F( NetNsWatcherTest, ADirectoryMayBeDeletedAndRecreated ) {
   std::filesystem::create_directory( file( "a" ) );
   std::filesystem::create_symlink( "/proc/self/ns/net", file( "a/mine" ) );
   watchOwn( "/a" );
   EXPECT_TRUE( knows( "mine" ) );
   std::filesystem::remove_all( file( "a" ) );
   ASSERT_TRUE( toldCount( 1 ) );
   std::filesystem::create_directory( file( "a" ) );
   settle( 20ms );
   std::filesystem::create_symlink( "/proc/self/ns/net", file( "a/mine" ) );
   ASSERT_TRUE( toldCount( 2 ) );
   EXPECT_THAT( told_, ElementsAre( "mine gone", "mine appeared" ) );
}

TEST_F( NetNsWatcherTest, MovedFilesAreFollowed ) {
   std::filesystem::create_symlink( "/proc/self/ns/net", file( "old" ) );
   watchOwn();
   std::filesystem::rename( file( "old" ), file( "new" ) );
   ASSERT_TRUE( toldCount( 2 ) );
   EXPECT_THAT( told_, ElementsAre( "old gone", "new appeared" ) );
}

// inotify reports none of this: the file stays.
TEST_F( NetNsWatcherTest, MountsOnAFileAreFollowed ) {
   TestNetNs const blue;
   makeFile( "one" );
   mount( "/proc/self/ns/net", "one" );
   watchOwn();
   unmount( "one" );
   mount( std::string( NetNsDirectories::usual ) + "/" + blue.text(), "one" );
   ASSERT_TRUE( toldCount( 1 ) );
   EXPECT_THAT( told_, ElementsAre( "one replaced" ) );
   watcher_->rescan();
   EXPECT_THAT( told_, ElementsAre( "one replaced" ) );
   unmount( "one" );
   ASSERT_TRUE( toldCount( 2 ) );
   EXPECT_THAT( told_, ElementsAre( "one replaced", "one gone" ) );
}

TEST_F( NetNsWatcherTest, RescanReportsAtOnce ) {
   makeFile( "one" );
   mount( "/proc/self/ns/net", "one" );
   watchOwn();
   unmount( "one" );
   watcher_->rescan();
   EXPECT_THAT( told_, ElementsAre( "one gone" ) );
}

TEST_F( NetNsWatcherTest, InvalidNamesAreIgnored ) {
   for ( auto const & name : { std::string( "default" ), std::string( 151, 'x' ) } ) {
      std::filesystem::create_symlink( "/proc/self/ns/net", file( name ) );
   }
   std::filesystem::create_symlink( "/proc/self/ns/net", file( std::string( 150, 'y' ) ) );
   watchOwn();
   EXPECT_EQ( watcher_->known().size(), 1u );
   EXPECT_TRUE( knows( std::string( 150, 'y' ) ) );
}

TEST_F( NetNsWatcherTest, AllOfManyChangesAreReported ) {
   watchOwn();
   for ( int i = 0; i < 500; ++i ) {
      std::filesystem::create_symlink( "/proc/self/ns/net", file( std::to_string( i ) ) );
   }
   ASSERT_TRUE( turnUntil( [ & ] { return watcher_->known().size() == 500; } ) );
   std::filesystem::remove_all( directory_.path() );
   ASSERT_TRUE( turnUntil( [ & ] { return watcher_->known().empty(); } ) );
   EXPECT_EQ( told_.size(), 1000u );
}

} // namespace
} // namespace Valen::Linux
