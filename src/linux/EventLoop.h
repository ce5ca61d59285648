// The event loop of the process: descriptors, signals, timers and deferred work on one thread.
//
// A turn waits for the kernel, then runs the callbacks of ready descriptors, and deferred work. After each
// of them it runs the timer tasks that are due, so that they wait for one callback at most. Work that
// deferred work defers runs in the next turn. A callback may add, change and remove any descriptor,
// including its own; a descriptor that is removed before its turn is not called.
//
// If a timer task is late by more than 5 ms, because the process was stopped or the machine is busy, the
// callbacks of all ready descriptors run before it, once each.
//
// If the kernel's timer cannot be set, that is a fault, and turns wait for the next deadline themselves; no
// timer is lost.
//
// An exception that leaves a callback goes to the fault sink (platform/quill/Fault.h), and the loop
// continues.
#pragma once

#include "linux/Fd.h"
#include "platform/gantry/TaskScheduler.h"
#include "platform/gantry/WorkQueue.h"

#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <sys/epoll.h>
#include <unordered_map>
#include <vector>

namespace Valen::Linux {

class EventLoop {
 public:
   using Work = std::function< void() >;
   // `events` as in epoll(7): EPOLLIN and others.
   using Ready = std::function< void( U32 events ) >;

   // `scheduler` must use the monotonic clock, as the process's own does by default. Throws
   // Quill::ErrnoException if the kernel does not provide a descriptor.
   explicit EventLoop( Quill::Ptr< Gantry::TaskScheduler > scheduler =
                          Gantry::TaskSchedulerRoot::findOrCreateScheduler() );
   ~EventLoop(); // unblocks the signals that it handled
   EventLoop( EventLoop const & ) = delete;
   EventLoop & operator=( EventLoop const & ) = delete;

   Quill::Ptr< Gantry::TaskScheduler > const & scheduler() const noexcept { return scheduler_; }

   // Calls `ready` whenever one of `events` (EPOLLIN, EPOLLOUT ...) is true for `fd`. For a descriptor
   // that was added before, replaces both. The caller keeps owning `fd`.
   //   name   for faults: "rtnetlink of ns-blue"
   void descriptorIs( int fd, U32 events, std::string name, Ready ready );
   // Call this before closing the descriptor. No effect on a descriptor that was not added.
   void descriptorDel( int fd ) noexcept;
   std::size_t descriptors() const noexcept { return sources_.size(); }

   // Calls `work` whenever the process receives signal `number`, and blocks its default action. Threads
   // that exist already do not block it, so set signals before starting threads.
   void signalIs( int number, Work work );

   // Runs `work` at the end of this turn, or of the next one if called outside a turn.
   void post( Work work ) { work_.post( std::move( work ) ); }
   // The queue behind post(), for owners of work that may be destroyed before it runs.
   Gantry::WorkQueue & workQueue() noexcept { return work_; }

   // Turns the loop until stop().
   void run();
   // Ends run() after the current turn. run() may be called again.
   void stop() noexcept { stopped_ = true; }
   // Runs one turn. Waits for an event, at most for `timeout` if it is given.
   void turn( std::optional< std::chrono::nanoseconds > timeout = std::nullopt );

   // Number of turns, and of settings of the kernel's timer, of which a turn makes at most one.
   U64 turns() const noexcept { return turns_; }
   U64 timerSettings() const noexcept { return timerSettings_; }

 private:
   struct Source {
      std::string name;
      Ready ready;
      U32 serial; // distinguishes it from a later one with the same number
   };

   static constexpr int eventsPerTurn = 64;
   using Events = std::array< epoll_event, eventsPerTurn >;
   enum class Timers : U8 { inTime, late };

   int waitMs( std::optional< std::chrono::nanoseconds > timeout ) const noexcept;
   void timerIs( std::optional< Gantry::Time > deadline );
   void timerExpired();
   std::span< epoll_event const > wait( Events & events, int timeoutMs );
   void runDue();
   Timers runTimers();
   void readWaiting();
   void dispatch( U64 data, U32 events );
   void signalsReady();

   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Fd const epoll_;
   Fd const timer_;
   Fd signals_; // empty until signalIs() is called
   sigset_t signalSet_;
   std::unordered_map< int, std::shared_ptr< Source > > sources_;
   std::map< int, Work > signalWork_;
   Gantry::WorkQueue work_;
   Gantry::Time readAt_ = Gantry::Time::min(); // what waited then was read
   std::optional< Gantry::Time > armedFor_;    // the setting of the kernel's timer
   bool timerFailed_ = false; // it could not be set: turns wait no longer than the next deadline
   U64 turns_ = 0;
   U64 timerSettings_ = 0;
   U32 serial_ = 0;
   bool stopped_ = false;
};

} // namespace Valen::Linux
