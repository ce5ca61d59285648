// Removes privileges and descriptors from a forked child process of the test.
#pragma once

#include "platform/quill/Exception.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Valen::Test {

// Drops one capability permanently.
inline void dropCapability( unsigned dropped ) {
   __user_cap_header_struct header{ _LINUX_CAPABILITY_VERSION_3, 0 };
   __user_cap_data_struct data[ 2 ]{};
   ASSERT_EQ( ::syscall( SYS_capget, &header, data ), 0 );
   auto const mask = ~( 1u << dropped % 32 );
   data[ dropped / 32 ].effective &= mask;
   data[ dropped / 32 ].permitted &= mask;
   data[ dropped / 32 ].inheritable &= mask;
   ASSERT_EQ( ::syscall( SYS_capset, &header, data ), 0 );
}

// As it is while a process does not use a capability that it has.
inline void suspendCapability( unsigned suspended ) {
   __user_cap_header_struct header{ _LINUX_CAPABILITY_VERSION_3, 0 };
   __user_cap_data_struct data[ 2 ]{};
   ASSERT_EQ( ::syscall( SYS_capget, &header, data ), 0 );
   data[ suspended / 32 ].effective &= ~( 1u << suspended % 32 );
   ASSERT_EQ( ::syscall( SYS_capset, &header, data ), 0 );
}

// The limit that leaves the process `count` descriptors.
inline int limitLeaving( int count ) {
   int limit = 0;
   for ( int left = 0; left < count || ::fcntl( limit, F_GETFD ) >= 0; ++limit ) {
      left += ::fcntl( limit, F_GETFD ) < 0;
   }
   return limit;
}

// While it exists, only descriptors below `limit` can be opened.
class DescriptorLimit {
 public:
   explicit DescriptorLimit( int limit ) {
      // The undefined-behavior sanitizer checks the first object of each type through a pipe. Without a
      // descriptor for the pipe, it reports the object as invalid. So show it an exception now.
      try {
         throw Quill::ErrnoException( "seen", 0 );
      } catch ( Quill::Exception const & ) {
      }
      ::getrlimit( RLIMIT_NOFILE, &before_ );
      rlimit const now{ static_cast< rlim_t >( limit ), before_.rlim_max };
      ::setrlimit( RLIMIT_NOFILE, &now );
   }
   ~DescriptorLimit() { ::setrlimit( RLIMIT_NOFILE, &before_ ); }
   DescriptorLimit( DescriptorLimit const & ) = delete;
   DescriptorLimit & operator=( DescriptorLimit const & ) = delete;

 private:
   rlimit before_{};
};

} // namespace Valen::Test
