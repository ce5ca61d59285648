#include "linux/Worker.h"

#include "linux/Thread.h"

#include <exception>
#include <system_error>

namespace Valen::Linux {

Worker::Worker( EventLoop & loop, std::string name )
    : name_( std::move( name ) ), inbox_( loop, name_ ) {}

Worker::~Worker() {
   {
      std::lock_guard const lock( mutex_ );
      ending_ = true;
   }
   queued_.notify_one();
   if ( thread_ ) {
      thread_->join();
   }
}

void Worker::run( Job job ) {
   if ( !startThreadOnce() ) {
      return execute( job );
   }
   {
      std::lock_guard const lock( mutex_ );
      jobs_.push_back( std::move( job ) );
   }
   queued_.notify_one();
}

bool Worker::startThreadOnce() {
   try {
      if ( !thread_ ) {
         thread_ = startThread( name_.c_str(), [ this ] { work(); } );
      }
      return true;
   } catch ( std::system_error const & ) {
      return false;
   }
}

void Worker::work() noexcept {
   std::unique_lock lock( mutex_ );
   for ( ;; ) {
      queued_.wait( lock, [ & ] { return ending_ || !jobs_.empty(); } );
      if ( jobs_.empty() ) {
         return;
      }
      auto const job = std::move( jobs_.front() );
      jobs_.pop_front();
      lock.unlock();
      execute( job );
      lock.lock();
   }
}

void Worker::execute( Job const & job ) {
   Work result;
   try {
      result = job();
   } catch ( ... ) {
      result = [ thrown = std::current_exception() ] { std::rethrow_exception( thrown ); };
   }
   if ( result ) {
      inbox_.put( std::move( result ) );
   }
}

} // namespace Valen::Linux
