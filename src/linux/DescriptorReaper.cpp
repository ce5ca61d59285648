#include "linux/DescriptorReaper.h"

#include "linux/Thread.h"

namespace Valen::Linux {

DescriptorReaper::~DescriptorReaper() {
   {
      std::lock_guard const lock( mutex_ );
      ending_ = true;
   }
   queued_.notify_all();
   for ( auto & thread : threads_ ) {
      thread.join();
   }
}

void DescriptorReaper::reap( Fd fd ) noexcept {
   if ( !fd ) {
      return;
   }
   std::unique_lock lock( mutex_ );
   try {
      queue_.push_back( std::move( fd ) );
   } catch ( std::exception const & ) {
      return; // no memory: `fd` closes here
   }
   try {
      addThread();
   } catch ( std::exception const & ) {
      if ( threads_.empty() ) {
         queue_.clear();
         return;
      }
   }
   lock.unlock();
   queued_.notify_one();
}

void DescriptorReaper::drain() noexcept {
   std::unique_lock lock( mutex_ );
   drained_.wait( lock, [ & ] { return queue_.empty() && closing_ == 0; } );
}

std::size_t DescriptorReaper::pending() const noexcept {
   std::lock_guard const lock( mutex_ );
   return queue_.size() + closing_;
}

// Starts another thread if all existing ones are busy.
void DescriptorReaper::addThread() {
   if ( threads_.size() < maxThreads && queue_.size() + closing_ > threads_.size() ) {
      threads_.push_back( startThread( "valen-close", [ this ] { work(); } ) );
   }
}

void DescriptorReaper::work() noexcept {
   std::unique_lock lock( mutex_ );
   for ( ;; ) {
      queued_.wait( lock, [ & ] { return ending_ || !queue_.empty(); } );
      if ( queue_.empty() ) {
         return;
      }
      Fd fd = std::move( queue_.back() );
      queue_.pop_back();
      ++closing_;
      lock.unlock();
      fd.close();
      lock.lock();
      if ( --closing_ == 0 && queue_.empty() ) {
         drained_.notify_all();
      }
   }
}

} // namespace Valen::Linux
