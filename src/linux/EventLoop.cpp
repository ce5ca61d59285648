#include "linux/EventLoop.h"

#include "platform/quill/Fault.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

namespace {

// A timer that is later than this was not only held up by another callback: the process was stopped, or
// the machine was.
constexpr std::chrono::milliseconds lateAfter{ 5 };

// How many timers run before something of what they posted. Of a thousand that are due at the same moment, the last
// should not have run before the first gets on.
constexpr U32 timersAtOnce = 16;

// The data of an event: the descriptor, and its serial number in the upper half.
U64 eventData( int fd, U32 serial ) noexcept {
   return static_cast< U64 >( serial ) << 32 | static_cast< U32 >( fd );
}

void epollControl( int epoll, int operation, int fd, U32 events, U32 serial ) {
   epoll_event event{};
   event.events = events;
   event.data.u64 = eventData( fd, serial );
   if ( ::epoll_ctl( epoll, operation, fd, &event ) < 0 ) {
      throwErrno( "epoll_ctl on descriptor " + std::to_string( fd ), errno );
   }
}

timespec toTimespec( std::chrono::nanoseconds time ) noexcept {
   auto const seconds = std::chrono::duration_cast< std::chrono::seconds >( time );
   return { seconds.count(), ( time - seconds ).count() };
}

// Runs `call`; its exceptions go to the fault sink and do not end the loop.
template < class Call > void guarded( char const * kind, std::string const & name, Call call ) {
   Quill::underFaultBoundary(
      { typeid( EventLoop ), "EventLoop", typeid( void ), kind }, [ & ] { return name; }, call );
}

} // namespace

EventLoop::EventLoop( Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : scheduler_( std::move( scheduler ) ),
      epoll_( requireFd( ::epoll_create1( EPOLL_CLOEXEC ), "epoll_create1" ) ),
      timer_( requireFd( ::timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK ),
                         "timerfd_create" ) ) {
   sigemptyset( &signalSet_ );
   descriptorIs( timer_.get(), EPOLLIN, "timers", [ this ]( U32 ) { timerExpired(); } );
}

EventLoop::~EventLoop() {
   if ( signals_ ) {
      ::pthread_sigmask( SIG_UNBLOCK, &signalSet_, nullptr );
   }
}

void EventLoop::descriptorIs( int fd, U32 events, std::string name, Ready ready ) {
   auto const old = sources_.find( fd );
   auto const serial = ++serial_;
   epollControl( epoll_.get(), old == sources_.end() ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, events,
                 serial );
   sources_[ fd ] =
      std::make_shared< Source >( Source{ std::move( name ), std::move( ready ), serial } );
}

void EventLoop::descriptorDel( int fd ) noexcept {
   if ( sources_.erase( fd ) ) {
      ::epoll_ctl( epoll_.get(), EPOLL_CTL_DEL, fd, nullptr );
   }
}

void EventLoop::signalIs( int number, Work work ) {
   sigaddset( &signalSet_, number );
   if ( auto const error = ::pthread_sigmask( SIG_BLOCK, &signalSet_, nullptr ) ) {
      throwErrno( "pthread_sigmask", error );
   }
   auto const fd = ::signalfd( signals_.get(), &signalSet_, SFD_CLOEXEC | SFD_NONBLOCK );
   if ( fd < 0 ) {
      throwErrno( "signalfd", errno );
   }
   if ( !signals_ ) {
      signals_ = Fd( fd );
      descriptorIs( fd, EPOLLIN, "signals", [ this ]( U32 ) { signalsReady(); } );
   }
   signalWork_[ number ] = std::move( work );
}

void EventLoop::signalsReady() {
   signalfd_siginfo info;
   while ( ::read( signals_.get(), &info, sizeof info ) == sizeof info ) {
      auto const number = static_cast< int >( info.ssi_signo );
      auto const work = signalWork_[ number ]; // a copy: the work may replace itself
      guarded( "signal", std::to_string( number ), work );
   }
}

void EventLoop::run() {
   stopped_ = false;
   while ( !stopped_ ) {
      turn();
   }
}

void EventLoop::turn( std::optional< std::chrono::nanoseconds > timeout ) {
   ++turns_;
   timerIs( scheduler_->nextDeadline() );
   Events events;
   for ( auto const & event : wait( events, waitMs( timeout ) ) ) {
      dispatch( event.data.u64, event.events );
      if ( runTimers() == Timers::late ) {
         break; // the kernel reports again what has not been read
      }
   }
   runDue();
}

// Runs the timer tasks that are due, and what was posted, in turn.
void EventLoop::runDue() {
   auto const until = scheduler_->now();
   std::optional< Gantry::Time > next;
   do {
      runTimers();
      work_.run( [ this ] { runTimers(); } );
      next = scheduler_->nextDeadline();
   } while ( work_.empty() && next && *next <= until );
}

// The descriptors that are ready, as many as `events` holds.
std::span< epoll_event const > EventLoop::wait( Events & events, int timeoutMs ) {
   auto const ready = ::epoll_wait( epoll_.get(), events.data(), eventsPerTurn, timeoutMs );
   if ( ready < 0 && errno != EINTR ) {
      throwErrno( "epoll_wait", errno );
   }
   return std::span( events ).first( static_cast< std::size_t >( std::max( ready, 0 ) ) );
}

// Runs some of the timer tasks that are due. If they are late, what waits in the descriptors may have come before
// they were due, and is read first: a shutdown that was aborted in time is not completed.
EventLoop::Timers EventLoop::runTimers() {
   auto const deadline = scheduler_->nextDeadline();
   auto const now = scheduler_->now();
   if ( !deadline || now < *deadline ) {
      return Timers::inTime;
   }
   bool const late = now - *deadline > lateAfter && *deadline > readAt_;
   if ( late ) {
      readAt_ = now;
      readWaiting();
   }
   scheduler_->runDue( timersAtOnce );
   return late ? Timers::late : Timers::inTime;
}

// Lets each descriptor read once what waits in it, and those that were added meanwhile, such as new
// connections. The timers wait for one pass, not for as long as something comes in.
void EventLoop::readWaiting() {
   Events events;
   for ( std::size_t pass = 0; pass <= 1 + sources_.size() / eventsPerTurn; ++pass ) {
      auto const ready = wait( events, 0 );
      for ( auto const & event : ready ) {
         if ( event.events & ~static_cast< U32 >( EPOLLOUT ) ) {
            dispatch( event.data.u64, event.events );
         }
      }
      if ( ready.empty() ) {
         return;
      }
   }
}

int EventLoop::waitMs( std::optional< std::chrono::nanoseconds > timeout ) const noexcept {
   if ( !work_.empty() ) {
      return 0;
   }
   auto const deadline = timerFailed_ ? scheduler_->nextDeadline() : std::nullopt;
   if ( deadline ) { // which the kernel's timer does not report
      auto const left = *deadline - scheduler_->now();
      timeout = std::min( timeout.value_or( left ), left );
   }
   if ( !timeout ) {
      return -1;
   }
   auto const ms = std::chrono::ceil< std::chrono::milliseconds >( *timeout ).count();
   return static_cast< int >( std::clamp< S64 >( ms, 0, INT_MAX ) );
}

void EventLoop::timerIs( std::optional< Gantry::Time > deadline ) {
   if ( deadline == armedFor_ ) {
      return;
   }
   itimerspec setting{};
   if ( deadline ) {
      // Zero would disarm the timer. Any other time in the past makes it expire at once.
      setting.it_value = toTimespec( std::max( *deadline, Gantry::Time( 1 ) ) );
   }
   ++timerSettings_;
   if ( ::timerfd_settime( timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr ) == 0 ) {
      armedFor_ = deadline;
      timerFailed_ = false;
   } else if ( !std::exchange( timerFailed_, true ) ) { // reported once; each turn tries again
      auto const number = errno;
      guarded( "timer", "", [ & ] { throwErrno( "timerfd_settime", number ); } );
   }
}

void EventLoop::timerExpired() {
   U64 expirations;
   if ( ::read( timer_.get(), &expirations, sizeof expirations ) == sizeof expirations ) {
      armedFor_.reset(); // turn() runs the tasks after the descriptors
   }
}

void EventLoop::dispatch( U64 data, U32 events ) {
   auto const found = sources_.find( static_cast< int >( data & ~0u ) );
   if ( found == sources_.end() || found->second->serial != data >> 32 ) {
      return; // removed earlier in this turn; the number may have been reused
   }
   auto const source = found->second; // keeps it alive if its callback removes it
   guarded( "descriptor", source->name, [ & ] { source->ready( events ); } );
}

} // namespace Valen::Linux
