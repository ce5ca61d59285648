#include "varlink/Server.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace Varlink {

using Valen::Linux::Fd;

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
   loop_.descriptorIs( listener_.fd(), EPOLLIN, "varlink socket", [ this ]( U32 ) { accept(); } );
}

void Server::accept() {
   Fd fd( ::accept4( listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK ) );
   if ( !fd ) {
      if ( errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS ) {
         loop_.descriptorDel( listener_.fd() ); // or the loop would spin while clients wait outside
         pause_.start( std::chrono::seconds( 1 ) );
      }
      return;
   }
   auto caller = callerOf( fd.get() );
   if ( !admit( caller ) ) {
      ++dropped_;
      return;
   }
   Connection::Surroundings const surroundings{
      loop_, service_, limits_,
      [ this ]( auto const & connection, auto end ) { closed( connection, end ); } };
   auto const number = ++clients_;
   auto const connection =
      std::make_shared< Connection >( surroundings, std::move( fd ), std::move( caller ), number );
   connections_[ number ] = connection;
   connection->start();
}

// Whether there is room for another client. If there is not, an idle one has to make it.
bool Server::admit( Caller const & caller ) {
   auto const ofUser =
      std::count_if( connections_.begin(), connections_.end(), [ & ]( auto const & entry ) {
         return entry.second->caller().uid == caller.uid;
      } );
   bool const tooManyOfUser =
      !caller.isRoot() && static_cast< std::size_t >( ofUser ) >= limits_.connectionsPerUser;
   if ( !tooManyOfUser && connections_.size() < limits_.connections && ( !room_ || room_() ) ) {
      return true;
   }
   auto * const candidate =
      longestIdle( tooManyOfUser ? std::optional( caller.uid ) : std::nullopt );
   if ( candidate ) {
      candidate->close( Connection::End::limitPassed );
   }
   return candidate != nullptr;
}

// Of the user's connections, if one is given; null when none is idle.
Connection * Server::longestIdle( std::optional< U32 > uid ) const {
   Connection * longest = nullptr;
   for ( auto const & [ number, connection ] : connections_ ) {
      if ( connection->idle() && ( !uid || connection->caller().uid == *uid ) &&
           ( !longest || connection->lastActive() < longest->lastActive() ) ) {
         longest = connection.get();
      }
   }
   return longest;
}

void Server::closed( Connection const & connection, Connection::End end ) {
   dropped_ += end == Connection::End::limitPassed;
   auto const number = connection.number();
   connections_.erase( number );
   posted_.post( [ this, number ] { service_.clientGone( number ); } );
}

} // namespace Varlink
