#include "varlink/Server.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace Varlink {

using Valen::Linux::Fd;

namespace {

constexpr int backlog = 128; // as many as a ListeningSocket lets wait

} // namespace

Server::Server( Valen::Linux::EventLoop & loop, std::string path, Service & service, Limits limits,
                Room room )
    : loop_( loop ), path_( std::move( path ) ), service_( service ), limits_( limits ),
      room_( std::move( room ) ), listener_( path_ ),
      pause_( loop.scheduler(), "varlink socket", [ this ] { listen(); } ),
      posted_( loop.workQueue(), "varlink server" ) {
   listen();
}

Server::~Server() {
   loop_.descriptorDel( listener_.fd() );
   connections_.clear();
}

void Server::listen() {
   loop_.descriptorIs( listener_.fd(), EPOLLIN, "varlink socket",
                       [ this ]( U32 ) { acceptAll(); } );
}

// Accepts all who wait, so that none of them is served later than those who come after.
void Server::acceptAll() {
   for ( int i = 0; i < backlog && accept(); ++i ) {
   }
}

// Returns false when no client waits, or none can be accepted now.
bool Server::accept() {
   Fd fd( ::accept4( listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
   if ( !fd ) {
      if ( errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS ) {
         loop_.descriptorDel( listener_.fd() ); // or the loop would spin while clients wait outside
         pause_.start( std::chrono::seconds( 1 ) );
      }
      return errno == ECONNABORTED || errno == EINTR;
   }
   auto caller = callerOf( fd.get() );
   auto const rank = service_.rankOf( caller );
   if ( !admit( caller, rank ) ) {
      ++dropped_.refused;
      return true;
   }
   Connection::Surroundings const surroundings{
      loop_, service_, limits_,
      [ this ]( auto const & connection, auto end ) { closed( connection, end ); },
      [ this ]( auto const & connection ) {
         return mayLast( connection.seat().rank, seats(), limits_ );
      } };
   auto const number = ++clients_;
   auto const connection = std::make_shared< Connection >( surroundings, std::move( fd ),
                                                           std::move( caller ), rank, number );
   connections_[ number ] = connection;
   connection->start();
   return true;
}

// Whether there is room for another client, or another one can make it.
bool Server::admit( Caller const & caller, Rank rank ) {
   auto limits = limits_;
   if ( room_ && !room_() ) {
      limits.connections = std::min( limits.connections, connections_.size() );
   }
   for ( auto seats = this->seats();; ) {
      auto const admission = Varlink::admit( { caller.uid, rank }, seats, limits );
      if ( !admission.leaves ) {
         return admission.admitted;
      }
      auto const leaving = connections_.at( *admission.leaves );
      if ( !leaving->idle() || !leaving->hasInput() ) { // it does not read, or does nothing
         leaving->close( Connection::End::madeRoom );   // which removes it
         return true;
      }
      std::find_if( seats.begin(), seats.end(), [ & ]( auto const & seat ) {
         return seat.number == *admission.leaves;
      } )->idleSince = std::nullopt;
   }
}

std::vector< Seat > Server::seats() const {
   std::vector< Seat > seats;
   for ( auto const & [ number, connection ] : connections_ ) {
      seats.push_back( connection->seat() );
   }
   return seats;
}

void Server::closed( Connection const & connection, Connection::End end ) {
   dropped_.tooLong += end == Connection::End::tooLong;
   dropped_.notReading += end == Connection::End::notReading;
   dropped_.madeRoom += end == Connection::End::madeRoom;
   auto const number = connection.number();
   connections_.erase( number );
   posted_.post( [ this, number ] { service_.clientGone( number ); } );
}

} // namespace Varlink
