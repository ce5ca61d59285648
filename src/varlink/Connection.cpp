#include "varlink/Connection.h"

#include "varlink/CallMessage.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace Varlink {

using Valen::Linux::Fd;

Connection::Connection( Surroundings const & surroundings, Fd fd, Caller caller, U64 number )
    : surroundings_( surroundings ), fd_( std::move( fd ) ), caller_( std::move( caller ) ),
      number_( number ), in_( surroundings.limits.messageBytes ),
      stalled_( surroundings.loop.scheduler(), "varlink client",
                [ this ] { close( End::limitPassed ); } ),
      posted_( surroundings.loop.workQueue(), "varlink client" ) {}

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

// --- Events --------------------------------------------------------------------------------------

// Asks the loop for what the state waits for.
void Connection::listen() {
   U32 events = out_.empty() ? 0u : static_cast< U32 >( EPOLLOUT );
   if ( state_ != State::answering && !inputEnded_ &&
        in_.waiting() <= surroundings_.limits.messageBytes ) {
      events |= EPOLLIN | EPOLLRDHUP;
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

void Connection::send( Json const & message ) {
   if ( state_ == State::closed ) {
      return;
   }
   out_ += encoded( message );
   if ( waiting() > surroundings_.limits.waitingBytes ) {
      return close( End::limitPassed );
   }
   if ( state_ == State::answering ) {
      flush();
      proceedLater();
   }
}

void Connection::finished() {
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

// Sends what the socket takes of the answers.
void Connection::flush() {
   while ( state_ != State::closed && written_ < out_.size() ) {
      auto const count =
         ::send( fd_.get(), out_.data() + written_, out_.size() - written_, MSG_NOSIGNAL );
      if ( count > 0 ) {
         written_ += static_cast< std::size_t >( count );
         stalled_.stop();
      } else if ( count == 0 || errno == EAGAIN ) {
         break;
      } else if ( errno != EINTR ) {
         return close( End::hungUp );
      }
   }
   if ( written_ > out_.size() / 2 ) { // seldom, so that a long answer is not moved all the time
      out_.erase( 0, std::exchange( written_, 0 ) );
   }
   if ( !out_.empty() && !stalled_.running() ) {
      stalled_.start( surroundings_.limits.stallTimeout );
   } else if ( out_.empty() && state_ == State::draining ) {
      state_ = State::idle;
   }
}

// Begins the next call if there is one, and waits for what comes next. At most one call a turn, so
// that the clients take turns.
void Connection::proceed() {
   if ( state_ == State::idle ) {
      if ( auto const text = in_.next() ) {
         return begin( *text );
      }
      if ( in_.tooLong() ) {
         return close( End::limitPassed );
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
