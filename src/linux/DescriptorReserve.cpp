#include "linux/DescriptorReserve.h"

#include <array>
#include <fcntl.h>

namespace Valen::Linux {

namespace {

// Takes a descriptor and an open file, which are limited separately (EMFILE, ENFILE).
Fd openAny() noexcept {
   return Fd( ::open( "/", O_PATH | O_CLOEXEC ) );
}

} // namespace

DescriptorReserve & DescriptorReserve::ofProcess() noexcept {
   static DescriptorReserve reserve;
   return reserve;
}

void DescriptorReserve::sizeIs( std::size_t size ) noexcept {
   std::lock_guard const lock( mutex_ );
   size_ = size;
   if ( held_.size() > size ) {
      held_.resize( size );
   }
   fillLocked();
}

std::size_t DescriptorReserve::held() const noexcept {
   std::lock_guard const lock( mutex_ );
   return held_.size();
}

bool DescriptorReserve::hasRoom() noexcept {
   std::lock_guard const lock( mutex_ );
   fillLocked();
   std::array< Fd, keptForWork > probes; // closed at the end
   for ( auto & probe : probes ) {
      probe =
         probes.front() ? Fd( ::fcntl( probes.front().get(), F_DUPFD_CLOEXEC, 0 ) ) : openAny();
      if ( !probe ) {
         return false;
      }
   }
   return true;
}

void DescriptorReserve::fill() noexcept {
   std::lock_guard const lock( mutex_ );
   fillLocked();
}

void DescriptorReserve::fillLocked() noexcept {
   try {
      held_.reserve( size_ );
   } catch ( std::exception const & ) {
      return;
   }
   while ( held_.size() < size_ ) {
      auto fd = openAny();
      if ( !fd ) {
         return;
      }
      held_.push_back( std::move( fd ) );
   }
}

bool DescriptorReserve::giveUpOne() noexcept {
   std::lock_guard const lock( mutex_ );
   if ( held_.empty() ) {
      return false;
   }
   held_.pop_back();
   return true;
}

} // namespace Valen::Linux
