// Keeps the kernel's lock for changes of the network (rtnl), as a router with a full table does.
#pragma once

#include "tests/linux/TestNetwork.h"
#include "tests/support/WorkDirectory.h"

#include <cstring>
#include <fstream>
#include <optional>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <thread>

namespace Valen::Test {

// A namespace with many devices beside many IPv6 routes. Setting all of its devices down is one request,
// during which the kernel walks all routes for each of them.
class BusyKernel {
 public:
   explicit BusyKernel( int devices = 250 ) {
      std::ofstream links( work_ / "links" );
      for ( int i = 0; i < devices; ++i ) {
         links << "link add a" << i << " group 7 type veth peer name b" << i << "\n";
      }
      links << "link add r type veth peer name s\nlink set r up\nlink set s up\n";
      links.close();
      netNs_.ip( "-batch " + work_ / "links" );
      netNs_.ip( "link set group 7 up" );
      std::ofstream list( work_ / "routes" );
      for ( int i = 0; i < routes; ++i ) {
         list << "route add 2001:db8:" << std::hex << i << "::/64 dev r\n";
      }
      list.close();
      netNs_.ip( "-6 -batch " + work_ / "routes" );
   }
   ~BusyKernel() {
      if ( busy() ) {
         ::waitpid( pid_, nullptr, 0 );
      }
   }
   BusyKernel( BusyKernel const & ) = delete;
   BusyKernel & operator=( BusyKernel const & ) = delete;

   // From now on the kernel is busy: with 250 devices for a second or more.
   void beBusy() {
      std::string const name = netNs_.text();
      char const * const argv[] = { "ip",    "-n", name.c_str(), "link", "set",
                                    "group", "7",  "down",       nullptr };
      ::posix_spawnp( &pid_, "ip", nullptr, nullptr, const_cast< char ** >( argv ), environ );
      while ( busy() && !firstIsDown() ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
      }
   }
   // Whether it still is.
   bool busy() {
      if ( pid_ > 0 && ::waitpid( pid_, nullptr, WNOHANG ) == pid_ ) {
         pid_ = -1;
      }
      return pid_ > 0;
   }

 private:
   static constexpr int routes = 20'000;

   // Reading the flags does not wait for the lock.
   bool firstIsDown() const {
      auto const opened = Linux::NetNsDirectories().open( netNs_.name() );
      Linux::NetNsScope const inside( opened );
      Linux::Fd const socket( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
      ifreq request{};
      ::strcpy( request.ifr_name, "a0" );
      return ::ioctl( socket.get(), SIOCGIFFLAGS, &request ) == 0 &&
             ( request.ifr_flags & IFF_UP ) == 0;
   }

   WorkDirectory work_;
   TestNetNs netNs_;
   pid_t pid_ = -1;
};

} // namespace Valen::Test
