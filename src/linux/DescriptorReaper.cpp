#include "linux/DescriptorReaper.h"

#include <csignal>
#include <pthread.h>
#include <system_error>

namespace Valen::Linux {

namespace {

// Threads started in its scope block all signals: the event loop handles them.
class SignalsBlocked {
 public:
   SignalsBlocked() noexcept {
      sigset_t all;
      sigfillset( &all );
      ::pthread_sigmask( SIG_SETMASK, &all, &before_ );
   }
   ~SignalsBlocked() { ::pthread_sigmask( SIG_SETMASK, &before_, nullptr ); }
   SignalsBlocked( SignalsBlocked const & ) = delete;
   SignalsBlocked & operator=( SignalsBlocked const & ) = delete;

 private:
   sigset_t before_;
};

} // namespace

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
      startThread();
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
void DescriptorReaper::startThread() {
   if ( threads_.size() < maxThreads && queue_.size() + closing_ > threads_.size() ) {
      SignalsBlocked const blocked;
      threads_.emplace_back( [ this ] { work(); } );
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
