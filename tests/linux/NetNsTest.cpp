#include "linux/NetNs.h"

#include "tests/linux/Privileges.h"
#include "tests/linux/TestNetwork.h"
#include "tests/support/WorkDirectory.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/nsfs.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <thread>

namespace Valen::Linux {
namespace {

using Corvid::NamespaceName;
using ::testing::HasSubstr;
using Valen::Test::dropCapability;
using Valen::Test::TestNetNs;
using Valen::Test::WorkDirectory;

NetNsIdentity ownIdentity() {
   struct stat status;
   EXPECT_EQ( ::stat( "/proc/thread-self/ns/net", &status ), 0 );
   return { status.st_dev, status.st_ino };
}

struct Refusal {
   std::string text;
   int number = 0;
};

Refusal refusal( NetNsDirectories const & directories, std::string const & name ) {
   try {
      (void)directories.open( NamespaceName( std::string_view( name ) ) );
   } catch ( Quill::ErrnoException const & e ) {
      EXPECT_EQ( errno, e.number() );
      return { e.text(), e.number() };
   }
   return {};
}

// From now on, the question for the type of a namespace fails in this thread.
void typeIsRefused( int number ) {
   sock_filter filter[] = {
      BPF_STMT( BPF_LD | BPF_W | BPF_ABS, offsetof( seccomp_data, nr ) ),
      BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 0, 3 ),
      BPF_STMT( BPF_LD | BPF_W | BPF_ABS, offsetof( seccomp_data, args[ 1 ] ) ),
      BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, NS_GET_NSTYPE, 0, 1 ),
      BPF_STMT( BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast< U32 >( number ) ),
      BPF_STMT( BPF_RET | BPF_K, SECCOMP_RET_ALLOW ),
   };
   sock_fprog const program{ std::size( filter ), filter };
   ASSERT_EQ( ::prctl( PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0 ), 0 );
   ASSERT_EQ( ::prctl( PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program ), 0 );
}

TEST( NetNsDirectoriesTest, DefaultIsTheProcesssOwnNamespaceAndIsNotEntered ) {
   auto const own = NetNsDirectories( { "/nowhere" } ).open( NamespaceName::defaultNamespace() );
   EXPECT_FALSE( own.fd );
   EXPECT_EQ( own.identity, ownIdentity() );
}

TEST( NetNsDirectoriesTest, AMissingNamespaceIsENOENTAndNamesTheDirectories ) {
   auto const one = refusal( NetNsDirectories( { "/run/netns", "/nowhere" } ), "ns-blue" );
   EXPECT_EQ( one.number, ENOENT );
   EXPECT_EQ( one.text, "network namespace \"ns-blue\" does not exist in /run/netns or /nowhere; "
                        "create it with \"ip netns add ns-blue\"" );
}

TEST( NetNsDirectoriesTest, NamesOutsideTheDirectoryAreRejected ) {
   for ( std::string const name : { "", ".", "..", "../ns", "a/b", "/etc", "a..b" } ) {
      auto const one = refusal( NetNsDirectories( { "/tmp" } ), name );
      EXPECT_EQ( one.number, EINVAL ) << name;
      EXPECT_EQ( one.text, "\"" + name + "\" cannot be the name of a network namespace" );
   }
   EXPECT_FALSE( NetNsDirectories::validName( std::string_view( "a\0b", 3 ) ) );
   EXPECT_TRUE( NetNsDirectories::validName( "ns-blue.1" ) );
}

TEST( NetNsDirectoriesTest, AFileThatIsNotANamespaceIsEINVAL ) {
   WorkDirectory const directory;
   std::ofstream( directory / "plain" ).put( 'x' );
   std::filesystem::create_directory( directory / "directory" );
   ASSERT_EQ( ::mkfifo( ( directory / "pipe" ).c_str(), 0600 ), 0 ); // must not block
   std::filesystem::create_symlink( "/proc/self/ns/mnt", directory / "mount" );
   for ( std::string const name : { "plain", "directory", "pipe", "mount" } ) {
      auto const one = refusal( NetNsDirectories( { directory.path() } ), name );
      EXPECT_EQ( one.number, EINVAL ) << name;
      EXPECT_EQ( one.text,
                 directory / name +
                    ( name == "directory"
                         ? " is a directory, not a network namespace; remove the directory"
                         : " is not a network namespace; remove the file, or mount a "
                           "network namespace on it" ) );
      EXPECT_EQ( NetNsDirectories( { directory.path() } )
                    .identity( NamespaceName( std::string_view( name ) ) ),
                 std::nullopt );
   }
}

// It may be one: the kernel could not say.
TEST( NetNsDirectoriesTest, AFileWhoseTypeIsNotKnownIsNoOtherFile ) {
   std::thread( [] {
      typeIsRefused( ENOMEM );
      auto const one = refusal( NetNsDirectories( { "/proc/thread-self/ns" } ), "net" );
      EXPECT_EQ( one.number, ENOMEM );
      EXPECT_THAT( one.text, HasSubstr( "cannot find out whether /proc/thread-self/ns/net is a "
                                        "network namespace" ) );
   } ).join();
}

TEST( NetNsDirectoriesTest, DirectoriesAreSearchedInOrder ) {
   WorkDirectory const first;
   WorkDirectory const second;
   std::filesystem::create_symlink( "/proc/self/ns/net", second / "mine" );
   NetNsDirectories const directories( { first.path(), second.path() } );
   EXPECT_EQ( directories.open( NamespaceName( "mine" ) ).identity, ownIdentity() );
   std::ofstream( first / "mine" ).put( 'x' );
   EXPECT_EQ( refusal( directories, "mine" ).number, EINVAL );
}

TEST( NetNsDirectoriesTest, RunningOutOfDescriptorsIsEMFILE ) {
   WorkDirectory const directory;
   std::filesystem::create_symlink( "/proc/self/ns/net", directory / "mine" );
   Refusal one;
   {
      Valen::Test::DescriptorLimit const none( 0 );
      one = refusal( NetNsDirectories( { directory.path() } ), "mine" );
   }
   EXPECT_EQ( one.number, EMFILE );
   EXPECT_EQ( one.text, "no file descriptor left to open " + directory / "mine" +
                           ": Too many open files; raise the limit (LimitNOFILE= of the service)" );
}

TEST( NetNsIdentityTest, IsPrintedAsDeviceAndInode ) {
   EXPECT_EQ( ( NetNsIdentity{ 4, 17 }.text() ), "4:17" );
}

// --- Entering ------------------------------------------------------------------------------------

class NetNsScopeTest : public Test::NetworkTest {};

TEST_F( NetNsScopeTest, EntersAndReturns ) {
   TestNetNs const blue;
   auto const netNs = NetNsDirectories().open( blue.name() );
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
      NetNsScope const inside( NetNsDirectories().open( blue.name() ) );
      throw std::runtime_error( "out" );
   } catch ( std::runtime_error const & ) {
   }
   EXPECT_EQ( ownIdentity(), home );
}

TEST_F( NetNsScopeTest, DoesNotEnterTheProcesssOwnNamespace ) {
   auto const home = ownIdentity();
   NetNsScope const inside( NetNsDirectories().open( NamespaceName::defaultNamespace() ) );
   EXPECT_EQ( ownIdentity(), home );
}

TEST_F( NetNsScopeTest, WithoutTheCapabilityItIsEPERMAndEntersNothing ) {
   TestNetNs const blue;
   auto const netNs = NetNsDirectories().open( blue.name() );
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
   auto const netNs = NetNsDirectories().open( blue.name() );
   auto const attempt = [ & ] {
      NetNsScope const inside( netNs );
      dropCapability( CAP_SYS_ADMIN );
   };
   EXPECT_EXIT( attempt(), ::testing::KilledBySignal( SIGABRT ),
                HasSubstr( "cannot return to the process's own network namespace" ) );
}

TEST_F( NetNsScopeTest, ARecreatedNamespaceHasAnotherIdentity ) {
   TestNetNs blue;
   auto const directories = NetNsDirectories();
   auto const first = directories.open( blue.name() ); // keeps the old one alive: inodes differ
   blue.destroy();
   EXPECT_EQ( directories.identity( blue.name() ), std::nullopt );
   blue.create();
   auto const second = directories.identity( blue.name() );
   ASSERT_TRUE( second );
   EXPECT_NE( *second, first.identity );
}

} // namespace
} // namespace Valen::Linux
