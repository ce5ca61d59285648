#include "linux/Worker.h"

#include "linux/Thread.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>

namespace Valen::Linux {

// What both threads use. The worker's may outlive the Worker.
struct Worker::Queue {
   std::mutex mutex;
   std::condition_variable changed;
   // All are guarded by the mutex.
   std::deque< Job > jobs;
   bool ending = false; // no job is added any more
   bool ended = false;  // the thread runs no job any more
   Inbox * inbox;       // null when the results are dropped

   void work() noexcept;
   void execute( Job const & job );
};

Worker::Worker( EventLoop & loop, std::string name,
                std::optional< std::chrono::milliseconds > endTimeout )
    : name_( std::move( name ) ), endTimeout_( endTimeout ), inbox_( loop, name_ ),
      queue_( std::make_shared< Queue >() ) {
   queue_->inbox = &inbox_;
}

Worker::~Worker() {
   {
      std::lock_guard const lock( queue_->mutex );
      queue_->ending = true;
      queue_->inbox = nullptr;
   }
   queue_->changed.notify_all();
   if ( !thread_ ) {
      return;
   }
   if ( allEnded() ) {
      thread_->join();
   } else {
      thread_->detach();
   }
}

// Waits for the jobs.
bool Worker::allEnded() {
   std::unique_lock lock( queue_->mutex );
   auto const ended = [ this ] { return queue_->ended; };
   if ( !endTimeout_ ) {
      queue_->changed.wait( lock, ended );
   } else if ( !queue_->changed.wait_for( lock, *endTimeout_, ended ) ) {
      queue_->jobs.clear();
   }
   return queue_->ended;
}

void Worker::run( Job job ) {
   if ( !startThreadOnce() ) {
      return queue_->execute( job );
   }
   {
      std::lock_guard const lock( queue_->mutex );
      queue_->jobs.push_back( std::move( job ) );
   }
   queue_->changed.notify_all();
}

bool Worker::startThreadOnce() {
   try {
      if ( !thread_ ) {
         thread_ = startThread( name_.c_str(), [ queue = queue_ ] { queue->work(); } );
      }
      return true;
   } catch ( std::system_error const & ) {
      return false;
   }
}

void Worker::Queue::work() noexcept {
   std::unique_lock lock( mutex );
   for ( ;; ) {
      changed.wait( lock, [ & ] { return ending || !jobs.empty(); } );
      if ( jobs.empty() ) {
         ended = true;
         changed.notify_all();
         return;
      }
      {
         auto const job = std::move( jobs.front() );
         jobs.pop_front();
         lock.unlock();
         execute( job );
      } // what it owns is destroyed in this thread, too
      lock.lock();
   }
}

void Worker::Queue::execute( Job const & job ) {
   Work result;
   try {
      result = job();
   } catch ( ... ) {
      result = [ thrown = std::current_exception() ] { std::rethrow_exception( thrown ); };
   }
   std::lock_guard const lock( mutex );
   if ( result && inbox ) {
      inbox->put( std::move( result ) );
   }
}

} // namespace Valen::Linux
