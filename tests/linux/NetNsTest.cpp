#include "linux/NetNs.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace Valen::Linux {
namespace {

using Corvid::NamespaceName;
using ::testing::HasSubstr;
using Valen::Test::dropCapability;
using Valen::Test::TestNetNs;

// A directory for one test.
class TestFolder {
 public:
   TestFolder() {
      char path[] = "/tmp/valen-netns-XXXXXX";
      path_ = ::mkdtemp( path );
   }
   ~TestFolder() { std::filesystem::remove_all( path_ ); }
   std::string file( std::string const & name ) const { return path_ + "/" + name; }
   std::string const & path() const { return path_; }

 private:
   std::string path_;
};

NetNsIdentity ownIdentity() {
   struct stat status;
   EXPECT_EQ( ::stat( "/proc/thread-self/ns/net", &status ), 0 );
   return { status.st_dev, status.st_ino };
}

struct Refusal {
   std::string text;
   int number = 0;
};

Refusal refusal( NetNsFolders const & folders, std::string const & name ) {
   try {
      (void)folders.open( NamespaceName( std::string_view( name ) ) );
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( errno, e.number() );
      return { e.text(), e.number() };
   }
   return {};
}

TEST( NetNsFoldersTest, DefaultIsTheProcesssOwnNamespaceAndIsNotEntered ) {
   auto const own = NetNsFolders( { "/nowhere" } ).open( NamespaceName::defaultNamespace() );
   EXPECT_FALSE( own.fd );
   EXPECT_EQ( own.identity, ownIdentity() );
}

TEST( NetNsFoldersTest, AMissingNamespaceIsENOENTAndNamesTheDirectories ) {
   auto const one = refusal( NetNsFolders( { "/run/netns", "/nowhere" } ), "ns-blue" );
   EXPECT_EQ( one.number, ENOENT );
   EXPECT_EQ( one.text, "network namespace \"ns-blue\" does not exist in /run/netns or /nowhere; "
                        "create it with \"ip netns add ns-blue\"" );
}

TEST( NetNsFoldersTest, NamesOutsideTheDirectoryAreRejected ) {
   for ( std::string const name : { "", ".", "..", "../ns", "a/b", "/etc", "a..b" } ) {
      auto const one = refusal( NetNsFolders( { "/tmp" } ), name );
      EXPECT_EQ( one.number, EINVAL ) << name;
      EXPECT_EQ( one.text, "\"" + name + "\" cannot be the name of a network namespace" );
   }
   EXPECT_FALSE( NetNsFolders::validName( std::string_view( "a\0b", 3 ) ) );
   EXPECT_TRUE( NetNsFolders::validName( "ns-blue.1" ) );
}

TEST( NetNsFoldersTest, AFileThatIsNotANamespaceIsEINVAL ) {
   TestFolder const folder;
   std::ofstream( folder.file( "plain" ) ).put( 'x' );
   std::filesystem::create_directory( folder.file( "folder" ) );
   ASSERT_EQ( ::mkfifo( folder.file( "pipe" ).c_str(), 0600 ), 0 ); // must not block
   std::filesystem::create_symlink( "/proc/self/ns/mnt", folder.file( "mount" ) );
   for ( std::string const name : { "plain", "folder", "pipe", "mount" } ) {
      auto const one = refusal( NetNsFolders( { folder.path() } ), name );
      EXPECT_EQ( one.number, EINVAL ) << name;
      EXPECT_EQ( one.text, folder.file( name ) + " is not a network namespace; remove the file, "
                                                 "or mount a network namespace on it" );
      EXPECT_EQ(
         NetNsFolders( { folder.path() } ).identity( NamespaceName( std::string_view( name ) ) ),
         std::nullopt );
   }
}

TEST( NetNsFoldersTest, DirectoriesAreSearchedInOrder ) {
   TestFolder const first;
   TestFolder const second;
   std::filesystem::create_symlink( "/proc/self/ns/net", second.file( "mine" ) );
   NetNsFolders const folders( { first.path(), second.path() } );
   EXPECT_EQ( folders.open( NamespaceName( "mine" ) ).identity, ownIdentity() );
   std::ofstream( first.file( "mine" ) ).put( 'x' );
   EXPECT_EQ( refusal( folders, "mine" ).number, EINVAL );
}

TEST( NetNsFoldersTest, RunningOutOfDescriptorsIsEMFILE ) {
   TestFolder const folder;
   std::filesystem::create_symlink( "/proc/self/ns/net", folder.file( "mine" ) );
   Refusal one;
   {
      Valen::Test::DescriptorLimit const none( 0 );
      one = refusal( NetNsFolders( { folder.path() } ), "mine" );
   }
   EXPECT_EQ( one.number, EMFILE );
   EXPECT_EQ( one.text, "no file descriptor left to open " + folder.file( "mine" ) +
                           ": Too many open files; raise the limit (LimitNOFILE= of the service)" );
}

TEST( NetNsIdentityTest, IsPrintedAsDeviceAndInode ) {
   EXPECT_EQ( ( NetNsIdentity{ 4, 17 }.text() ), "4:17" );
}

// --- Entering ------------------------------------------------------------------------------------

class NetNsScopeTest : public Test::NetworkTest {};

TEST_F( NetNsScopeTest, EntersAndReturns ) {
   TestNetNs const blue;
   auto const netNs = NetNsFolders().open( blue.name() );
   auto const home = ownIdentity();
   EXPECT_NE( netNs.identity, home );
   {
      NetNsScope const inside( netNs );
      EXPECT_EQ( ownIdentity(), netNs.identity );
   }
   EXPECT_EQ( ownIdentity(), home );
}

TEST_F( NetNsScopeTest, ReturnsAfterAnException ) {
   TestNetNs const blue;
   auto const home = ownIdentity();
   try {
      NetNsScope const inside( NetNsFolders().open( blue.name() ) );
      throw std::runtime_error( "out" );
   } catch ( std::runtime_error const & ) {
   }
   EXPECT_EQ( ownIdentity(), home );
}

TEST_F( NetNsScopeTest, DoesNotEnterTheProcesssOwnNamespace ) {
   auto const home = ownIdentity();
   NetNsScope const inside( NetNsFolders().open( NamespaceName::defaultNamespace() ) );
   EXPECT_EQ( ownIdentity(), home );
}

TEST_F( NetNsScopeTest, WithoutTheCapabilityItIsEPERMAndEntersNothing ) {
   TestNetNs const blue;
   auto const netNs = NetNsFolders().open( blue.name() );
   auto const attempt = [ & ] {
      dropCapability( CAP_SYS_ADMIN );
      auto const home = ownIdentity();
      try {
         NetNsScope const inside( netNs );
      } catch ( Quill::ErrnoException const & e ) {
         std::fprintf( stderr, "%s", e.what() );
         ::_exit( ownIdentity() == home ? e.number() : 99 );
      }
      ::_exit( 98 );
   };
   EXPECT_EXIT( attempt(), ::testing::ExitedWithCode( EPERM ),
                HasSubstr( "no privilege to enter network namespace \"" + blue.text() +
                           "\"; CAP_SYS_ADMIN is needed" ) );
}

TEST_F( NetNsScopeTest, AbortsAProcessThatCannotReturn ) {
   TestNetNs const blue;
   auto const netNs = NetNsFolders().open( blue.name() );
   auto const attempt = [ & ] {
      NetNsScope const inside( netNs );
      dropCapability( CAP_SYS_ADMIN );
   };
   EXPECT_EXIT( attempt(), ::testing::KilledBySignal( SIGABRT ),
                HasSubstr( "cannot return to the process's own network namespace" ) );
}

TEST_F( NetNsScopeTest, ARecreatedNamespaceHasAnotherIdentity ) {
   TestNetNs blue;
   auto const folders = NetNsFolders();
   auto const first = folders.open( blue.name() ); // keeps the old one alive: inodes differ
   blue.destroy();
   EXPECT_EQ( folders.identity( blue.name() ), std::nullopt );
   blue.create();
   auto const second = folders.identity( blue.name() );
   ASSERT_TRUE( second );
   EXPECT_NE( *second, first.identity );
}

} // namespace
} // namespace Valen::Linux
