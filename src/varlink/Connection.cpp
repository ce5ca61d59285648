#include "varlink/Connection.h"

#include "varlink/CallMessage.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Varlink {

using Valen::Linux::Fd;

namespace {

// What one event sends at most: a long answer to a fast reader must not keep all others waiting.
constexpr std::size_t bytesPerFlush = 1u << 16;

} // namespace

Connection::Connection( Surroundings const & surroundings, Fd fd, Caller caller, Rank rank,
                        U64 number )
    : surroundings_( surroundings ), fd_( std::move( fd ) ), caller_( std::move( caller ) ),
      rank_( rank ), number_( number ), in_( surroundings.limits.messageBytes ),
      stalled_( surroundings.loop.scheduler(), "varlink client",
                [ this ] { close( End::notReading ); } ),
      posted_( surroundings.loop.workQueue(), "varlink client" ),
      lastActive_( surroundings.loop.scheduler()->now() ), lastTaken_( lastActive_ ) {}

Connection::~Connection() {
   if ( fd_ ) {
      surroundings_.loop.descriptorDel( fd_.get() );
   }
}

void Connection::close( End end ) {
   if ( state_ == State::closed ) {
      return;
   }
   auto const self = shared_from_this();
   state_ = State::closed;
   surroundings_.loop.descriptorDel( fd_.get() );
   fd_.close();
   stalled_.stop();
   surroundings_.closed( *this, end );
}

bool Connection::hasInput() const noexcept {
   int bytes = 0;
   return ::ioctl( fd_.get(), FIONREAD, &bytes ) == 0 && bytes > 0;
}

Seat Connection::seat() const noexcept {
   auto const idleSince = idle() ? std::optional( lastActive_ ) : std::nullopt;
   auto const unreadSince = waiting_ ? std::optional( lastTaken_ ) : std::nullopt;
   return { number_, caller_.uid, rank_, lasting_ || needed_, idleSince, unreadSince };
}

// --- Events --------------------------------------------------------------------------------------

// Asks the loop for what the state waits for.
void Connection::listen() {
   U32 events = out_.empty() ? 0u : static_cast< U32 >( EPOLLOUT );
   if ( state_ != State::answering && !inputEnded_ &&
        in_.waiting() <= surroundings_.limits.messageBytes ) {
      events |= EPOLLIN | EPOLLRDHUP;
   }
   if ( std::exchange( listensFor_, events ) == events ) {
      return;
   }
   surroundings_.loop.descriptorIs( fd_.get(), events, "varlink client",
                                    [ this ]( U32 happened ) { ready( happened ); } );
}

void Connection::ready( U32 events ) {
   auto const self = shared_from_this();
   lastActive_ = surroundings_.loop.scheduler()->now();
   bool const hungUp = events & ( EPOLLHUP | EPOLLERR );
   if ( hungUp && state_ != State::idle ) {
      return close( End::hungUp );
   }
   if ( events & EPOLLOUT ) {
      flush();
   }
   if ( hungUp || events & ( EPOLLIN | EPOLLRDHUP ) ) {
      read();
   }
   proceed();
}

void Connection::send( Encoded message ) {
   if ( state_ == State::closed ) {
      return;
   }
   if ( out_.empty() ) {
      lastTaken_ = surroundings_.loop.scheduler()->now();
   }
   waiting_ += message->size();
   out_.push_back( std::move( message ) );
   if ( waiting_ > surroundings_.limits.waitingBytes ) {
      return close( End::notReading );
   }
   if ( state_ == State::answering ) {
      flush();
      proceedLater();
   }
}

void Connection::finished() {
   lasting_ = false;
   if ( state_ == State::calling ) {
      state_ = State::draining; // begin() goes on once the service's function has returned
   } else if ( state_ == State::answering ) {
      state_ = State::draining;
      flush();
      proceedLater();
   }
}

// --- Actions -------------------------------------------------------------------------------------

void Connection::read() {
   if ( state_ == State::closed ) {
      return;
   }
   char buffer[ 65536 ];
   auto const count = ::recv( fd_.get(), buffer, sizeof buffer, 0 );
   if ( count < 0 && errno != EAGAIN && errno != EINTR ) {
      close( End::hungUp );
   } else if ( count == 0 ) {
      inputEnded_ = true;
   } else if ( count > 0 ) {
      in_.feed( { buffer, static_cast< std::size_t >( count ) } );
   }
}

// Sends what the socket takes of the answers, a part at a time.
void Connection::flush() {
   for ( std::size_t sent = 0; state_ != State::closed && !out_.empty() && sent < bytesPerFlush; ) {
      auto const rest = std::string_view( *out_.front() ).substr( written_, bytesPerFlush - sent );
      auto const count = ::send( fd_.get(), rest.data(), rest.size(), MSG_NOSIGNAL );
      if ( count > 0 ) {
         sent += static_cast< std::size_t >( count );
         taken( static_cast< std::size_t >( count ) );
      } else if ( count == 0 || errno == EAGAIN ) {
         break;
      } else if ( errno != EINTR ) {
         return close( End::hungUp );
      }
   }
   if ( !out_.empty() && !stalled_.running() ) {
      stalled_.start( surroundings_.limits.stallTimeout );
   } else if ( out_.empty() && state_ == State::draining ) {
      state_ = State::idle;
   }
}

void Connection::taken( std::size_t bytes ) {
   waiting_ -= bytes;
   written_ += bytes;
   if ( written_ == out_.front()->size() ) {
      out_.pop_front();
      written_ = 0;
   }
   stalled_.stop();
   lastTaken_ = surroundings_.loop.scheduler()->now();
}

// Begins the next call if there is one, and waits for what comes next. At most one call a turn, so
// that the clients take turns.
void Connection::proceed() {
   if ( state_ == State::idle ) {
      if ( auto const text = in_.next() ) {
         return begin( *text );
      }
      if ( in_.tooLong() ) {
         return close( End::tooLong );
      }
      if ( inputEnded_ ) {
         return close( End::hungUp );
      }
   }
   if ( state_ != State::closed ) {
      listen();
   }
}

void Connection::proceedLater() {
   posted_.post( [ this ] {
      auto const self = shared_from_this();
      proceed();
   } );
}

void Connection::begin( std::string const & text ) {
   auto message = CallMessage::parse( text );
   if ( !message ) {
      return close( End::hungUp ); // not the protocol: an answer would not be understood
   }
   bool const isObject = message->parameters.is_object();
   auto const call =
      std::make_shared< Call >( std::move( message->method ), std::move( message->parameters ),
                                message->wanted, caller_, number_, weak_from_this() );
   state_ = State::calling;
   if ( isObject ) {
      surroundings_.service.call( call );
   } else {
      call->error( Errors::invalidParameter( "parameters" ) );
   }
   if ( state_ == State::calling ) {
      state_ = State::answering;
   }
   flush();
   proceedLater();
}

} // namespace Varlink
