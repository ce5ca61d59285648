#include "linux/Inbox.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

Inbox::Inbox( EventLoop & loop, std::string name )
    : loop_( loop ), wakeUp_( requireFd( ::eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ), "eventfd" ) ),
      posted_( loop.workQueue(), name ) {
   loop_.descriptorIs( wakeUp_.get(), EPOLLIN, std::move( name ), [ this ]( U32 ) { take(); } );
}

Inbox::~Inbox() {
   loop_.descriptorDel( wakeUp_.get() );
}

void Inbox::put( Work work ) {
   {
      std::lock_guard const lock( mutex_ );
      entries_.push_back( std::move( work ) );
      if ( entries_.size() > 1 ) {
         return; // the loop was woken up
      }
   }
   U64 const one = 1;
   // Fails only when the counter is full, and then the loop wakes up too.
   [[maybe_unused]] auto const written = ::write( wakeUp_.get(), &one, sizeof one );
}

void Inbox::take() {
   U64 count;
   [[maybe_unused]] auto const got = ::read( wakeUp_.get(), &count, sizeof count );
   std::vector< Work > entries;
   {
      std::lock_guard const lock( mutex_ );
      entries.swap( entries_ );
   }
   for ( auto & work : entries ) {
      posted_.post( std::move( work ) );
   }
}

} // namespace Valen::Linux
