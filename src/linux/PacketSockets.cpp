#include "linux/PacketSockets.h"

#include "linux/DescriptorReserve.h"

#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Valen::Linux {

namespace {

[[noreturn]] void cannotOpenSocket( Corvid::NamespaceName const & netNs, int number ) {
   auto const object = "a packet socket in network namespace \"" + netNs.stdString() + "\"";
   if ( number == EPERM || number == EACCES ) {
      throw Quill::ErrnoException( "no privilege to open " + object + "; CAP_NET_RAW is needed",
                                   number );
   }
   if ( number == EMFILE || number == ENFILE ) {
      throw Quill::ErrnoException( "no file descriptor left to open " + object + ": " +
                                      errorText( number ) +
                                      "; raise the limit (LimitNOFILE= of the service)",
                                   number );
   }
   throwErrno( "cannot open " + object, number );
}

// SO_SNDBUFFORCE needs CAP_NET_ADMIN. Without it, the system's limit applies.
void sendBufferIs( int fd, int bytes ) noexcept {
   if ( ::setsockopt( fd, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof bytes ) < 0 ) {
      ::setsockopt( fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes );
   }
}

// Needs CAP_NET_ADMIN, as the filters do for which it is set.
void markIs( int fd, U32 mark ) noexcept {
   if ( mark ) {
      ::setsockopt( fd, SOL_SOCKET, SO_MARK, &mark, sizeof mark );
   }
}

// Not from the reserve of descriptors: it stays open.
Fd openInside( NetNs const & netNs, U32 mark ) {
   NetNsScope const inside( netNs );
   Fd socket( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   if ( !socket ) {
      cannotOpenSocket( netNs.name, errno );
   }
   sendBufferIs( socket.get(), PacketSockets::sendBufferBytes );
   markIs( socket.get(), mark );
   return socket;
}

} // namespace

bool PacketSockets::Socket::serves( U32 ifIndex ) const noexcept {
   return std::find( devices.begin(), devices.end(), ifIndex ) != devices.end();
}

U64 PacketSockets::Socket::outstandingBytes() const noexcept {
   int bytes = 0;
   if ( ::ioctl( fd.get(), SIOCOUTQ, &bytes ) < 0 ) {
      return 0;
   }
   return static_cast< U64 >( bytes );
}

void PacketSockets::open( NetNs const & netNs ) {
   sockets_.push_back( { openInside( netNs, pool_.mark ) } );
   netNs_ = { netNs.name, netNs.identity, Fd() };
   entered_ = static_cast< bool >( netNs.fd );
}

void PacketSockets::close() noexcept {
   pool_.extra -= extra();
   for ( auto & socket : sockets_ ) {
      pool_.reaper.reap( std::move( socket.fd ) );
   }
   sockets_.clear();
   current_ = 0;
}

void PacketSockets::burstIs( U32 ifIndex ) {
   if ( !sockets_[ current_ ].servesOnly( ifIndex ) ) {
      current_ = choose( ifIndex );
   }
   sockets_[ current_ ].used = true;
}

std::size_t PacketSockets::choose( U32 ifIndex ) {
   auto const taken = [ & ]( std::size_t number ) {
      auto & devices = sockets_[ number ].devices;
      devices.assign( 1, ifIndex );
      return number;
   };
   for ( std::size_t number = 0; number < sockets_.size(); ++number ) {
      if ( sockets_[ number ].servesOnly( ifIndex ) ) {
         return number;
      }
   }
   std::size_t least = 0;
   U64 leastBytes = ~U64{ 0 };
   for ( std::size_t number = 0; number < sockets_.size(); ++number ) {
      auto const bytes = sockets_[ number ].outstandingBytes();
      if ( bytes == 0 ) {
         return taken( number );
      }
      if ( bytes < leastBytes ) {
         least = number;
         leastBytes = bytes;
      }
   }
   if ( openExtra() ) {
      return taken( sockets_.size() - 1 );
   }
   ++pool_.sharedBursts;
   if ( !sockets_[ least ].serves( ifIndex ) ) {
      sockets_[ least ].devices.push_back( ifIndex );
   }
   return least;
}

bool PacketSockets::openExtra() {
   if ( pool_.extra >= PacketSocketPool::maxExtra || !DescriptorReserve::ofProcess().hasRoom() ) {
      return false;
   }
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      sockets_.push_back( { openBesideResident() } );
   } catch ( Quill::ErrnoException const & ) { // the burst shares a socket
      return false;
   }
   ++pool_.extra;
   return true;
}

// The socket itself gives its namespace, which may have been deleted since, or have lost its name to
// another one. That needs CAP_NET_ADMIN.
Fd PacketSockets::openBesideResident() const {
   NetNs netNs{ netNs_.name, netNs_.identity, Fd() };
   if ( entered_ ) {
      netNs.fd = requireFd( ::ioctl( sockets_.front().fd.get(), SIOCGSKNS ), "SIOCGSKNS" );
   }
   return openInside( netNs, pool_.mark );
}

U64 PacketSockets::outstandingBytes( U32 ifIndex ) const noexcept {
   U64 sum = 0;
   for ( auto const & socket : sockets_ ) {
      sum += socket.serves( ifIndex ) ? socket.outstandingBytes() : 0;
   }
   return sum;
}

void PacketSockets::closeUnused() noexcept {
   for ( auto number = sockets_.size(); number > 1; --number ) {
      auto & socket = sockets_[ number - 1 ];
      if ( std::exchange( socket.used, false ) || socket.outstandingBytes() > 0 ) {
         continue;
      }
      pool_.reaper.reap( std::move( socket.fd ) );
      sockets_.erase( sockets_.begin() + static_cast< std::ptrdiff_t >( number - 1 ) );
      --pool_.extra;
      current_ = current_ == number - 1 ? 0 : current_ - ( current_ > number - 1 );
   }
}

} // namespace Valen::Linux
