#include "varlink/Server.h"

#include "varlink/Framing.h"
#include "varlink/UnixSocket.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Varlink {

using Valen::Linux::Fd;

namespace {

constexpr char const * invalidParameter = "org.varlink.service.InvalidParameter";

bool isFlag( Json const & message, char const * name ) {
   auto const found = message.find( name );
   return found != message.end() && found->is_boolean() && found->get< bool >();
}

// Whether objects and arrays are nested deeper than any call of ours; to take such a message apart
// would cost far more than its length.
bool isTooDeep( std::string_view text ) {
   constexpr int deepest = 16;
   int depth = 0;
   bool inString = false;
   for ( std::size_t i = 0; i < text.size(); ++i ) {
      auto const c = text[ i ];
      if ( inString ) {
         i += c == '\\';
         inString = c != '"';
      } else if ( c == '"' ) {
         inString = true;
      } else if ( ( c == '[' || c == '{' ) && ++depth > deepest ) {
         return true;
      } else if ( c == ']' || c == '}' ) {
         --depth;
      }
   }
   return false;
}

} // namespace

// One client.
class Server::Connection final : public Replies, public std::enable_shared_from_this< Connection > {
 public:
   Connection( Server & server, Fd fd, Caller caller )
       : server_( server ), fd_( std::move( fd ) ), caller_( std::move( caller ) ),
         number_( ++server.clients_ ), in_( server.limits_.messageBytes ),
         impatience_( server.loop_.scheduler(), "api client", [ this ] { dropLater(); } ) {}

   ~Connection() override {
      if ( fd_ ) {
         server_.loop_.descriptorDel( fd_.get() );
      }
   }

   Caller const & caller() const noexcept { return caller_; }
   bool idle() const noexcept { return !busy_ && !needed_ && out_.empty(); }
   U64 lastTurn() const noexcept { return lastTurn_; }

   void ready( U32 events ) {
      auto const self = shared_from_this();
      lastTurn_ = ++server_.turn_;
      bool const hungUp = events & ( EPOLLHUP | EPOLLERR );
      if ( hungUp && ( busy_ || !out_.empty() ) ) {
         return drop( false ); // nobody is there to be answered
      }
      if ( events & EPOLLOUT && !write() ) {
         return;
      }
      if ( ( hungUp || events & ( EPOLLIN | EPOLLRDHUP ) ) && !read() ) {
         return;
      }
      proceed();
   }
   // Makes room for another client.
   void sendAway() { drop( true ); }

   // Asks the loop for what the connection waits for now.
   void listen() {
      U32 events = out_.empty() ? 0u : static_cast< U32 >( EPOLLOUT );
      if ( !busy_ && !ended_ && in_.waiting() <= server_.limits_.messageBytes ) {
         events |= EPOLLIN | EPOLLRDHUP;
      }
      server_.loop_.descriptorIs( fd_.get(), events, "api client",
                                  [ self = weak_from_this() ]( U32 happened ) {
                                     if ( auto const connection = self.lock() ) {
                                        connection->ready( happened );
                                     }
                                  } );
   }

   std::size_t waiting() const noexcept override { return out_.size() - written_; }
   void neededIs( bool needed ) noexcept override { needed_ = needed; }
   void send( Json const & message, bool last ) override {
      auto const self = shared_from_this();
      if ( last ) {
         busy_ = false;
      }
      if ( !fd_ ) {
         return;
      }
      if ( !oneway_ ) {
         out_ += message.dump( -1, ' ', false, Json::error_handler_t::replace );
         out_ += '\0';
      }
      if ( waiting() > server_.limits_.waitingBytes ) {
         return drop( true );
      }
      if ( !handling_ && write() ) { // else whoever runs the calls goes on
         later();
      }
   }

 private:
   // Takes what has come in. Returns false when the connection is gone.
   bool read() {
      char buffer[ 65536 ];
      auto const count = ::recv( fd_.get(), buffer, sizeof buffer, 0 );
      if ( count < 0 && errno != EAGAIN && errno != EINTR ) {
         drop( false );
         return false;
      }
      if ( count == 0 ) {
         ended_ = true; // the client may still be waiting for answers
      } else if ( count > 0 ) {
         in_.feed( { buffer, static_cast< std::size_t >( count ) } );
      }
      return true;
   }

   // Sends what waits. Returns false when the connection is gone.
   bool write() {
      while ( written_ < out_.size() ) {
         auto const count =
            ::send( fd_.get(), out_.data() + written_, out_.size() - written_, MSG_NOSIGNAL );
         if ( count < 0 && errno == EINTR ) {
            continue;
         }
         if ( count < 0 && errno != EAGAIN ) {
            drop( false );
            return false;
         }
         if ( count <= 0 ) {
            break;
         }
         written_ += static_cast< std::size_t >( count );
         impatience_.stop();
      }
      if ( written_ > out_.size() / 2 ) { // seldom, so that a long answer is not moved all the time
         out_.erase( 0, std::exchange( written_, 0 ) );
      }
      if ( out_.empty() ) {
         impatience_.stop();
      } else if ( !impatience_.running() ) {
         impatience_.start( server_.limits_.patience );
      }
      return true;
   }

   // Makes the next call, at most one a turn, and sees what to wait for.
   void proceed() {
      if ( !busy_ && out_.empty() ) {
         if ( auto const message = in_.next() ) {
            handling_ = true;
            handle( *message );
            handling_ = false;
            if ( !fd_ || !write() ) {
               return;
            }
            later();
         } else if ( in_.tooLong() ) {
            return drop( true );
         } else if ( ended_ ) {
            return drop( false );
         }
      }
      listen();
   }

   // Goes on in the loop's next turn.
   void later() {
      server_.loop_.post( [ self = weak_from_this() ] {
         auto const connection = self.lock();
         if ( connection && connection->fd_ ) {
            connection->proceed();
         }
      } );
   }

   void handle( std::string const & text ) {
      auto const message = isTooDeep( text ) ? Json() : Json::parse( text, nullptr, false );
      if ( !message.is_object() || !message.contains( "method" ) ||
           !message[ "method" ].is_string() ) {
         return drop( false ); // not our protocol: no answer would be understood
      }
      oneway_ = isFlag( message, "oneway" );
      busy_ = true;
      auto parameters = message.value( "parameters", Json::object() );
      if ( parameters.is_null() ) {
         parameters = Json::object();
      }
      bool const fits = parameters.is_object();
      auto const call =
         std::make_shared< Call >( message[ "method" ], std::move( parameters ),
                                   isFlag( message, "more" ), caller_, number_, weak_from_this() );
      if ( !fits ) {
         return call->error( invalidParameter, { { "parameter", "parameters" } } );
      }
      server_.service_.call( call );
   }

   void dropLater() { // not from the callback of a timer that goes with us
      server_.loop_.post( [ self = weak_from_this() ] {
         if ( auto const connection = self.lock() ) {
            connection->drop( true );
         }
      } );
   }

   void drop( bool forPassingALimit ) {
      auto const self = shared_from_this();
      if ( fd_ ) {
         server_.loop_.descriptorDel( fd_.get() );
         auto const number = fd_.get();
         Fd const closing = std::move( fd_ );
         impatience_.stop();
         server_.remove( number, number_, forPassingALimit );
      }
   }

   Server & server_;
   Fd fd_; // none once dropped
   Caller const caller_;
   U64 const number_;
   Framing in_;
   std::string out_;
   std::size_t written_ = 0; // of out_
   Gantry::Timer impatience_;
   U64 lastTurn_ = 0;
   bool busy_ = false;     // a call is being answered
   bool handling_ = false; // and its handler is on the stack
   bool oneway_ = false;   // and no answer is wanted
   bool needed_ = false;   // something hangs on the connection
   bool ended_ = false;    // the client sends nothing more
};

Server::Server( Valen::Linux::EventLoop & loop, std::string path, Service & service, Limits limits )
    : loop_( loop ), path_( std::move( path ) ), service_( service ), limits_( limits ),
      listener_( listenAt( path_ ) ),
      pause_( loop.scheduler(), "api socket", [ this ] { listen(); } ),
      alive_( std::make_shared< bool >( true ) ) {
   listen();
}

Server::~Server() {
   *alive_ = false;
   loop_.descriptorDel( listener_.get() );
   connections_.clear();
   ::unlink( path_.c_str() );
}

void Server::listen() {
   loop_.descriptorIs( listener_.get(), EPOLLIN, "api socket", [ this ]( U32 ) { accept(); } );
}

void Server::accept() {
   Fd fd( ::accept4( listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
   if ( !fd ) {
      if ( errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS ) {
         loop_.descriptorDel( listener_.get() ); // or the loop would spin on who waits outside
         pause_.start( std::chrono::seconds( 1 ) );
      }
      return;
   }
   auto const caller = callerOf( fd.get() );
   if ( !admit( caller ) ) {
      ++dropped_;
      return;
   }
   auto const number = fd.get();
   auto const connection = std::make_shared< Connection >( *this, std::move( fd ), caller );
   connections_[ number ] = connection;
   connection->listen();
}

// Whether there is room for another client, which an idle one may have to make.
bool Server::admit( Caller const & caller ) {
   auto const ofUser =
      std::count_if( connections_.begin(), connections_.end(), [ & ]( auto const & entry ) {
         return entry.second->caller().uid == caller.uid;
      } );
   bool const tooManyOfUser =
      !caller.isRoot() && static_cast< std::size_t >( ofUser ) >= limits_.connectionsPerUser;
   if ( !tooManyOfUser && connections_.size() < limits_.connections ) {
      return true;
   }
   Connection * longestIdle = nullptr;
   for ( auto const & [ fd, connection ] : connections_ ) {
      bool const candidate =
         connection->idle() && ( !tooManyOfUser || connection->caller().uid == caller.uid );
      if ( candidate && ( !longestIdle || connection->lastTurn() < longestIdle->lastTurn() ) ) {
         longestIdle = connection.get();
      }
   }
   if ( longestIdle ) {
      longestIdle->sendAway();
   }
   return longestIdle != nullptr;
}

void Server::remove( int fd, U64 client, bool forPassingALimit ) {
   dropped_ += forPassingALimit;
   connections_.erase( fd );
   loop_.post(
      [ this, alive = alive_, client ] { *alive ? service_.clientGone( client ) : void(); } );
}

} // namespace Varlink
