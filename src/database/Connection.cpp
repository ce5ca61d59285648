#include "database/Connection.h"

#include <cerrno>
#include <sys/socket.h>

namespace Database {

namespace {

using Valen::Linux::errorText;

// What one event reads and sends at most: timers run in between.
constexpr std::size_t bytesPerEvent = 1u << 16;

std::string inSeconds( std::chrono::milliseconds time ) {
   auto const ms = time.count();
   return ms % 1000 ? std::to_string( ms ) + " ms" : std::to_string( ms / 1000 ) + " s";
}

// As the server takes it: the number of words, then each with its size.
void encode( std::string & out, Connection::Words words ) {
   out += "*" + std::to_string( words.size() ) + "\r\n";
   for ( auto const word : words ) {
      out += "$" + std::to_string( word.size() ) + "\r\n";
      out += word;
      out += "\r\n";
   }
}

} // namespace

Connection::Connection( Valen::Linux::EventLoop & loop, Options options, Events events )
    : loop_( loop ), options_( std::move( options ) ),
      events_( std::make_shared< Events const >( std::move( events ) ) ),
      backoff_( options_.timing.firstPause, options_.timing.lastPause ),
      random_( std::random_device()() ),
      connector_(
         loop, options_.address,
         { [ this ]( Connector::Connected connected ) { socketIs( std::move( connected ) ); },
           [ this ]( std::string const & why ) { notConnected( why ); } } ),
      bound_( loop.scheduler(), "database connection", [ this ] { tooLate(); } ),
      pause_( loop.scheduler(), "database connection", [ this ] { attempt(); } ),
      ping_( loop.scheduler(), "database connection", [ this ] { ping(); } ),
      posted_( loop.workQueue(), "database connection" ) {}

Connection::~Connection() {
   stop();
}

void Connection::start() {
   if ( state_ == State::stopped ) {
      attempt();
   }
}

void Connection::stop() noexcept {
   close();
   state_ = State::stopped;
   outstanding_.clear();
}

// --- Connecting ----------------------------------------------------------------------------------

void Connection::attempt() {
   state_ = State::connecting;
   bound_.start( options_.timing.connect );
   connector_.start();
}

void Connection::socketIs( Connector::Connected connected ) {
   state_ = State::greeting;
   socket_ = std::move( connected.socket );
   reader_.emplace( options_.limits.replyBytes );
   greet( connected.password );
   listen();
}

// The connector must not be destroyed here, and the owner may do so when it is told of a loss.
void Connection::notConnected( std::string const & why ) {
   posted_.post( [ this, why, session = session_ ] {
      if ( session == session_ ) {
         lose( why );
      }
   } );
}

void Connection::greet( std::string const & password ) {
   auto const & address = options_.address;
   if ( !address.user.empty() ) {
      append( { "AUTH", address.user, password }, greeting( "AUTH" ) );
   } else if ( !password.empty() ) {
      append( { "AUTH", password }, greeting( "AUTH" ) );
   }
   if ( address.database ) {
      append( { "SELECT", std::to_string( address.database ) }, greeting( "SELECT" ) );
   }
   append( { "PING" }, [ this, next = greeting( "PING" ) ]( Reply const & reply ) {
      if ( reply.ok() ) {
         isUp();
      } else {
         next( reply );
      }
   } );
   // For people who look at CLIENT LIST; a user without the right to set it works all the same.
   append( { "CLIENT", "SETNAME", options_.name }, []( Reply const & ) {} );
}

// What to do with the reply to a step of the greeting.
Connection::OnReply Connection::greeting( char const * step ) {
   return [ this, step ]( Reply const & reply ) {
      if ( reply.failed() ) {
         lose( step + ( ": " + reply.text ) );
      }
   };
}

void Connection::isUp() {
   state_ = State::up;
   ++connects_;
   bound_.stop();
   since_ = heard_ = loop_.scheduler()->now();
   ping_.start( options_.timing.ping );
   if ( auto const events = events_; events->connected ) {
      events->connected();
   }
}

void Connection::close() noexcept {
   ++session_;
   connector_.stop();
   bound_.stop();
   pause_.stop();
   ping_.stop();
   if ( socket_ ) {
      loop_.descriptorDel( socket_.get() );
      socket_.close();
   }
   listensFor_.reset();
   out_ = {};
   written_ = 0;
   outstandingBytes_ = 0;
   full_ = false;
   pinged_ = false;
}

void Connection::lose( std::string const & why ) {
   // A server that takes connections and closes them again must not be asked at once.
   if ( up() && loop_.scheduler()->now() - since_ > options_.timing.lastPause ) {
      backoff_.reset();
   }
   close();
   state_ = State::pausing;
   auto const session = session_;
   auto const pause = backoff_.take();
   // From three quarters to five quarters, so that many daemons do not come back at the same time.
   pause_.start( pause * 3 / 4 + pause * static_cast< int >( random_() % 512 ) / 1024 );
   auto const events = events_;
   std::weak_ptr const life = life_;
   for ( auto & lost : std::exchange( outstanding_, {} ) ) {
      lost.reply( { .type = Reply::Type::lost, .text = lost.tooLarge ? why : std::string() } );
      if ( life.expired() ) {
         return;
      }
   }
   if ( session == session_ ) {
      events->lost( why );
   }
}

void Connection::tooLate() {
   lose( ( state_ == State::greeting ? "no answer within " : "no connection within " ) +
         inSeconds( options_.timing.connect ) );
}

void Connection::ping() {
   auto const silent = loop_.scheduler()->now() - heard_;
   if ( silent >= options_.timing.silence ) {
      return lose( "no answer for " + inSeconds( options_.timing.silence ) );
   }
   ping_.start( options_.timing.ping );
   if ( !std::exchange( pinged_, true ) ) {
      append( { "PING" }, [ this ]( Reply const & ) { pinged_ = false; } );
   }
}

// --- Sending -------------------------------------------------------------------------------------

void Connection::command( Words words, OnReply reply ) {
   if ( up() ) {
      return append( words, std::move( reply ) );
   }
   posted_.post( [ reply = std::move( reply ) ] { reply( { .type = Reply::Type::lost } ); } );
}

void Connection::append( Words words, OnReply reply ) {
   auto const before = out_.size();
   encode( out_, words );
   auto const bytes = out_.size() - before;
   outstanding_.push_back( { bytes, false, std::move( reply ) } );
   outstandingBytes_ += bytes;
   full_ = full_ || outstandingBytes_ > options_.limits.outstandingBytes ||
           outstanding_.size() > options_.limits.outstandingCommands;
   flushLater();
}

void Connection::flushLater() {
   if ( !std::exchange( flushing_, true ) ) {
      posted_.post( [ this ] {
         flushing_ = false;
         flush();
      } );
   }
}

// Sends what the socket takes, a part at a time.
void Connection::flush() {
   if ( !socket_ ) {
      return;
   }
   for ( std::size_t sent = 0; written_ < out_.size() && sent < bytesPerEvent; ) {
      auto const rest = std::string_view( out_ ).substr( written_, bytesPerEvent - sent );
      auto const count = ::send( socket_.get(), rest.data(), rest.size(), MSG_NOSIGNAL );
      if ( count > 0 ) {
         sent += static_cast< std::size_t >( count );
         written_ += static_cast< std::size_t >( count );
      } else if ( errno == EINTR ) {
         continue;
      } else if ( errno == EAGAIN ) {
         break;
      } else {
         // What the server said before it closed is read, and then the end: that tells more.
         out_.clear();
         written_ = 0;
         break;
      }
   }
   if ( written_ == out_.size() ) {
      out_ = {};
      written_ = 0;
   } else if ( written_ > out_.size() / 2 ) {
      out_.erase( 0, std::exchange( written_, 0 ) );
   }
   listen();
}

// --- Receiving -----------------------------------------------------------------------------------

// Asks the loop for what is waited for.
void Connection::listen() {
   auto const events = EPOLLIN | ( out_.empty() ? 0u : static_cast< U32 >( EPOLLOUT ) );
   if ( std::exchange( listensFor_, events ) != events ) {
      loop_.descriptorIs( socket_.get(), events, "database connection",
                          [ this ]( U32 happened ) { ready( happened ); } );
   }
}

void Connection::ready( U32 events ) {
   if ( events & EPOLLOUT ) {
      flush();
   }
   if ( events & ~static_cast< U32 >( EPOLLOUT ) ) {
      read();
   }
}

void Connection::read() {
   char buffer[ bytesPerEvent ];
   auto const count = ::recv( socket_.get(), buffer, sizeof buffer, 0 );
   if ( count < 0 && ( errno == EAGAIN || errno == EINTR ) ) {
      return;
   }
   if ( count <= 0 ) {
      return lose( count ? "recv: " + errorText( errno ) : "the server closed the connection" );
   }
   heard_ = loop_.scheduler()->now();
   reader_->feed( { buffer, static_cast< std::size_t >( count ) } );
   std::weak_ptr const life = life_;
   auto const session = session_;
   while ( auto reply = reader_->next() ) {
      take( std::move( *reply ) );
      if ( life.expired() || session != session_ ) {
         return;
      }
   }
   if ( !reader_->error().empty() ) {
      if ( reader_->tooLarge() && !outstanding_.empty() ) {
         outstanding_.front().tooLarge = true;
      }
      lose( std::string( reader_->error() ) );
   }
}

void Connection::take( Reply reply ) {
   if ( isNotice( reply ) ) {
      return takeNotice( reply );
   }
   if ( outstanding_.empty() ) { // "-ERR max number of clients reached", or not this protocol
      return lose( reply.failed() ? reply.text : "the server sent what was not asked for" );
   }
   auto const front = std::move( outstanding_.front() );
   outstanding_.pop_front();
   outstandingBytes_ -= front.bytes;
   std::weak_ptr const life = life_;
   auto const session = session_;
   front.reply( std::move( reply ) );
   if ( life.expired() || session != session_ || !full_ ) {
      return;
   }
   auto const & limits = options_.limits;
   full_ = outstandingBytes_ > limits.outstandingBytes / 2 ||
           outstanding_.size() > limits.outstandingCommands / 2;
   if ( auto const events = events_; !full_ && up() && events->ready ) {
      events->ready();
   }
}

bool Connection::isNotice( Reply const & reply ) const {
   if ( !up() || !events_->notice || reply.items.empty() ) {
      return false;
   }
   auto const & kind = reply.items[ 0 ].text;
   return ( kind == "message" && reply.items.size() == 3 ) ||
          ( kind == "pmessage" && reply.items.size() == 4 );
}

void Connection::takeNotice( Reply const & reply ) const {
   auto const size = reply.items.size();
   auto const events = events_;
   events->notice( reply.items[ size - 2 ].text, reply.items[ size - 1 ].text );
}

} // namespace Database
