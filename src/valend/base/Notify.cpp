#include "valend/base/Notify.h"

#include "linux/Fd.h"
#include "linux/UnixAddress.h"

#include <cerrno>
#include <cstdlib>

namespace Valend {

using Valen::Linux::UnixAddress;

namespace {

enum class Sent : U8 { sent, later, failed };

constexpr auto firstPause = std::chrono::milliseconds( 20 );
constexpr auto lastPause = std::chrono::milliseconds( 1000 );

UnsentNotifications * unsent = nullptr;

// NOTIFY_SOCKET names a path, or after "@" an abstract name.
std::optional< UnixAddress > managerAddress() noexcept {
   auto const * const value = std::getenv( "NOTIFY_SOCKET" );
   std::string_view const name( value ? value : "" );
   if ( name.starts_with( '@' ) ) {
      return UnixAddress::abstract( name.substr( 1 ) );
   }
   return name.starts_with( '/' ) ? UnixAddress::at( name ) : std::nullopt;
}

// Opened once, so that a lack of descriptors does not silence the watchdog.
int managerSocket() noexcept {
   static Valen::Linux::Fd fd;
   if ( !fd ) {
      fd = Valen::Linux::Fd( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   }
   return fd.get();
}

Sent sendNow( std::string const & state ) noexcept {
   auto const address = managerAddress();
   if ( !address ) {
      return Sent::failed;
   }
   auto const fd = managerSocket();
   if ( fd >= 0 && ::sendto( fd, state.data(), state.size(), MSG_NOSIGNAL, address->get(),
                             address->size() ) == static_cast< ssize_t >( state.size() ) ) {
      return Sent::sent;
   }
   bool const passes = errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM || errno == EMFILE ||
                       errno == ENFILE || errno == EINTR;
   return passes ? Sent::later : Sent::failed;
}

// "READY" of "READY=1\nSTATUS=...".
std::string_view kindOf( std::string_view state ) noexcept {
   return state.substr( 0, state.find( '=' ) );
}

} // namespace

bool notifyManager( std::string const & state ) noexcept {
   bool const keeps = unsent && kindOf( state ) != "WATCHDOG";
   bool const waits = keeps && !unsent->states().empty(); // behind the others
   auto const result = waits ? Sent::later : sendNow( state );
   if ( keeps && result == Sent::later ) {
      unsent->keep( state );
   }
   return result == Sent::sent;
}

UnsentNotifications::UnsentNotifications( Quill::Ptr< Gantry::TaskScheduler > const & scheduler )
    : pause_( firstPause, lastPause ), timer_( scheduler, "notify", [ this ] { send(); } ) {
   unsent = this;
   managerSocket();
}

UnsentNotifications::~UnsentNotifications() {
   send();
   unsent = nullptr;
}

void UnsentNotifications::keep( std::string const & state ) {
   std::erase_if( states_,
                  [ & ]( auto const & other ) { return kindOf( other ) == kindOf( state ); } );
   states_.push_back( state );
   if ( !timer_.running() ) {
      timer_.start( pause_.take() );
   }
}

void UnsentNotifications::send() {
   while ( !states_.empty() ) {
      if ( sendNow( states_.front() ) == Sent::later ) {
         return timer_.start( pause_.take() );
      }
      states_.erase( states_.begin() );
   }
   pause_.reset();
}

} // namespace Valend
