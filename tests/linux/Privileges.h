// Takes privileges and descriptors away from a forked child of the test.
#pragma once

#include "platform/quill/Exception.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Valen::Test {

// Gives one capability up for good, as a service would be without it.
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

// While it stands, only descriptors below `limit` can be opened.
class DescriptorLimit {
 public:
   explicit DescriptorLimit( int limit ) {
      // The undefined-behaviour sanitizer looks at the first object of a type through a pipe, and
      // takes it for no object when it gets none. So it sees an exception now.
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
