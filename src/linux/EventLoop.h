// The event loop of the process: descriptors, signals, timers and put-off work on one thread.
//
// A turn waits for the kernel, then runs, in this order: the callbacks of ready descriptors, the
// timer tasks that are due, and the work that was put off. Work that is put off by put-off work
// waits for the next turn, so that due timers run in between. A callback may add, change and remove
// any descriptor, its own included; one removed before its turn is not called.
//
// An exception that leaves a callback goes to the fault sink (platform/quill/Fault.h), and the loop
// goes on.
#pragma once

#include "linux/Fd.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/gantry/WorkQueue.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Valen::Linux {

class EventLoop {
 public:
   using Work = std::function< void() >;
   // `events` as epoll(7) has them: EPOLLIN and the rest.
   using Ready = std::function< void( U32 events ) >;

   // `scheduler` must stand on the monotonic clock, as the process's own does from birth. Throws
   // Quill::ErrnoException when the kernel refuses a descriptor.
   explicit EventLoop( Quill::Ptr< Gantry::TaskScheduler > scheduler =
                          Gantry::TaskSchedulerRoot::findOrCreateScheduler() );
   ~EventLoop(); // unblocks the signals that it took
   EventLoop( EventLoop const & ) = delete;
   EventLoop & operator=( EventLoop const & ) = delete;

   Quill::Ptr< Gantry::TaskScheduler > const & scheduler() const noexcept { return scheduler_; }

   // Calls `ready` whenever one of `events` (EPOLLIN, EPOLLOUT ...) holds for `fd`, which stays the
   // caller's; or changes both for a descriptor that is there already.
   //   name   for faults: "rtnetlink of ns-blue"
   void descriptorIs( int fd, U32 events, std::string name, Ready ready );
   // Must come before the descriptor is closed. No effect on one that is not there.
   void descriptorDel( int fd ) noexcept;
   std::size_t descriptors() const noexcept { return sources_.size(); }

   // Calls `work` whenever the process gets signal `number`, which is blocked from now on. Threads
   // made before still take it the old way, so set signals first.
   void signalIs( int number, Work work );

   // Runs `work` at the end of this turn, or of the next one when no turn is under way.
   void post( Work work ) { work_.post( std::move( work ) ); }
   // The queue behind post(), for owners of work that may be destroyed before it runs.
   Gantry::WorkQueue & workQueue() noexcept { return work_; }

   // Turns until stop().
   void run();
   // Ends run() after the turn under way; a run() that comes later turns again.
   void stop() noexcept { stopped_ = true; }
   // One turn. Waits at most `timeout` for something to happen; for as long as it takes without.
   void turn( std::optional< std::chrono::nanoseconds > timeout = std::nullopt );

   // How often turns began, and how often the kernel's timer was set; never more often than that.
   U64 turns() const noexcept { return turns_; }
   U64 timerSettings() const noexcept { return timerSettings_; }

 private:
   struct Source {
      std::string name;
      Ready ready;
      U32 serial; // tells it from a later one of the same number
   };

   int waitMs( std::optional< std::chrono::nanoseconds > timeout ) const noexcept;
   void timerIs( std::optional< Gantry::Time > deadline );
   void timerExpired();
   void dispatch( U64 data, U32 events );
   void signalsReady();

   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Fd const epoll_;
   Fd const timer_;
   Fd signals_; // none until a signal is wanted
   sigset_t signalSet_;
   std::unordered_map< int, std::shared_ptr< Source > > sources_;
   std::map< int, Work > signalWork_;
   Gantry::WorkQueue work_;
   std::optional< Gantry::Time > armedFor_; // what the kernel's timer is set to
   U64 turns_ = 0;
   U64 timerSettings_ = 0;
   U32 serial_ = 0;
   bool stopped_ = false;
};

} // namespace Valen::Linux
