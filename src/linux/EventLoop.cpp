#include "linux/EventLoop.h"

#include "platform/quill/Fault.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

namespace {

constexpr int eventsPerTurn = 64;

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
   std::array< epoll_event, eventsPerTurn > events;
   auto const ready = ::epoll_wait( epoll_.get(), events.data(), eventsPerTurn, waitMs( timeout ) );
   if ( ready < 0 && errno != EINTR ) {
      throwErrno( "epoll_wait", errno );
   }
   for ( int i = 0; i < ready; ++i ) {
      dispatch( events[ i ].data.u64, events[ i ].events );
   }
   scheduler_->runDue();
   work_.run();
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
