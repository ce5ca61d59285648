// The service manager's end of its notification socket.
#pragma once

#include "linux/Fd.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valen::Test {

class NotifySocket {
 public:
   explicit NotifySocket( std::string path )
       : path_( std::move( path ) ), fd_( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path_.copy( address.sun_path, sizeof address.sun_path - 1 );
      EXPECT_EQ( ::bind( fd_.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ),
                 0 );
   }

   std::string const & path() const { return path_; }
   // Waits for the next notification.
   std::string received() const {
      char text[ 200 ];
      pollfd ready{ fd_.get(), POLLIN, 0 };
      auto const count =
         ::poll( &ready, 1, 30'000 ) > 0 ? ::recv( fd_.get(), text, sizeof text, 0 ) : 0;
      return std::string( text, static_cast< std::size_t >( std::max< ssize_t >( count, 0 ) ) );
   }

 private:
   std::string const path_;
   Linux::Fd const fd_;
};

} // namespace Valen::Test
