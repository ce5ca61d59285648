#include "linux/PacketEndpoint.h"

#include "platform/quill/Printable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace Valen::Linux {

namespace {

// Number of devices whose errors are kept. The lowest index, of the oldest device, is dropped first.
constexpr std::size_t maxSendErrors = 1024;

} // namespace

// --- PacketEndpoint ------------------------------------------------------------------------------

PacketEndpoint::PacketEndpoint( Quill::String name, std::shared_ptr< PacketEndpoints > endpoints )
    : RawTxPam( std::move( name ) ), endpoints_( std::move( endpoints ) ),
      sockets_( endpoints_->pool ) {
   endpoints_->live.push_back( this );
}

PacketEndpoint::~PacketEndpoint() {
   close();
   std::erase( endpoints_->live, this );
}

void PacketEndpoint::enabledIs( bool enabled ) {
   if ( enabled == this->enabled() ) {
      return;
   }
   if ( enabled ) {
      try {
         open();
      } catch ( Quill::ErrnoException const & e ) {
         auto const number = errno; // the library reads it
         if ( endpoints_->openFailed && ( e.number() == ENOENT || e.number() == EINVAL ) ) {
            endpoints_->openFailed( netNs(), e.text() );
         }
         errno = number;
         throw;
      }
   } else {
      close();
   }
}

void PacketEndpoint::open() {
   sockets_.open( endpoints_->directories.open( netNs() ) );
}

void PacketEndpoint::close() noexcept {
   burst_ = Burst();
   sockets_.close();
}

void PacketEndpoint::burstIs( U32 ifIndex, Quill::String const & deviceName ) {
   burst_.ifIndex = ifIndex;
   burst_.packets = 0;
   burst_.refused.clear();
   burstRefused_ = 0;
   sendErrors_.erase( ifIndex );
   if ( !enabled() || ifIndex == 0 ) {
      return; // send() rejects every packet
   }
   sockets_.burstIs( ifIndex );
   auto & timer = endpoints_->closeUnused;
   if ( endpoints_->pool.extra > 0 && timer && !timer->running() ) {
      timer->start( PacketEndpointProvider::closeUnusedAfter );
   }
   ifreq request{};
   request.ifr_ifindex = static_cast< int >( ifIndex );
   if ( ::ioctl( sockets_.fd(), SIOCGIFNAME, &request ) < 0 ) {
      auto const number = errno;
      return burstRefusedIs( ifIndex, number,
                             number == ENODEV ? "index " + std::to_string( ifIndex ) +
                                                   " is gone, was " + deviceName.stdString()
                                              : "SIOCGIFNAME: " + errorText( number ) );
   }
   std::string_view const current( request.ifr_name,
                                   ::strnlen( request.ifr_name, sizeof request.ifr_name ) );
   if ( current != deviceName.view() ) {
      burstRefusedIs( ifIndex, ENODEV,
                      "index " + std::to_string( ifIndex ) + " is now " +
                         Quill::printable( current ) + ", not " + deviceName.stdString() );
   }
}

void PacketEndpoint::burstRefusedIs( U32 ifIndex, int number, std::string text ) {
   burstRefused_ = number;
   ++counters_.wrongBursts;
   sendErrorOf( ifIndex ) = { number, 0, std::move( text ) };
}

bool PacketEndpoint::send( Corvid::Pkt const & pkt, U32 ifIndex ) {
   ++burst_.packets;
   if ( ifIndex == 0 ) {
      return refuse( ifIndex, EINVAL );
   }
   if ( !enabled() ) {
      return refuse( ifIndex, ENOTCONN );
   }
   if ( ifIndex != burst_.ifIndex ) {
      return refuse( ifIndex, ENODEV );
   }
   if ( burstRefused_ ) {
      ++counters_.wrongDevice;
      return refuse( ifIndex, burstRefused_ );
   }
   sockaddr_ll device{};
   device.sll_family = AF_PACKET;
   device.sll_ifindex = static_cast< int >( ifIndex );
   auto const sent = ::sendto( sockets_.fd(), pkt.data(), pkt.length(), MSG_DONTWAIT,
                               reinterpret_cast< sockaddr const * >( &device ), sizeof device );
   if ( sent != static_cast< ssize_t >( pkt.length() ) ) {
      return refuse( ifIndex, sent < 0 ? errno : EMSGSIZE );
   }
   ++counters_.sent;
   return true;
}

bool PacketEndpoint::refuse( U32 ifIndex, int number ) {
   lastErrno_ = number;
   ++counters_.failed;
   burst_.refused.push_back( { burst_.packets - 1, number } );
   auto & error = sendErrorOf( ifIndex );
   ++error.packets;
   if ( error.number != number ) { // otherwise the text is there already
      error.number = number;
      error.text = errorText( number );
   }
   return false;
}

PacketEndpoint::SendError const * PacketEndpoint::sendError( U32 ifIndex ) const noexcept {
   auto const found = sendErrors_.find( ifIndex );
   return found == sendErrors_.end() ? nullptr : &found->second;
}

PacketEndpoint::SendError & PacketEndpoint::sendErrorOf( U32 ifIndex ) {
   auto const found = sendErrors_.find( ifIndex );
   if ( found != sendErrors_.end() ) {
      return found->second;
   }
   if ( sendErrors_.size() >= maxSendErrors ) {
      sendErrors_.erase( sendErrors_.begin() );
   }
   return sendErrors_[ ifIndex ];
}

// --- PacketEndpointProvider ----------------------------------------------------------------------

PacketEndpointProvider::PacketEndpointProvider( NetNsDirectories directories,
                                                Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : shared_( std::make_shared< PacketEndpoints >() ) {
   shared_->directories = std::move( directories );
   if ( scheduler ) {
      shared_->closeUnused.emplace( std::move( scheduler ), "packet sockets",
                                    [ endpoints = shared_.get() ] { closeUnused( *endpoints ); } );
   }
}

void PacketEndpointProvider::closeUnused( PacketEndpoints & endpoints ) {
   for ( auto * const endpoint : endpoints.live ) {
      endpoint->closeUnused();
   }
   if ( endpoints.pool.extra > 0 ) {
      endpoints.closeUnused->start( closeUnusedAfter );
   }
}

Quill::Ptr< Corvid::RawTxPam > PacketEndpointProvider::newRawTxPam( Quill::String name ) {
   return Quill::make< PacketEndpoint >( std::move( name ), shared_ );
}

std::vector< PacketEndpoint * >
PacketEndpointProvider::endpoints( Corvid::NamespaceName const & netNs ) const {
   std::vector< PacketEndpoint * > found;
   for ( auto * const endpoint : shared_->live ) {
      if ( endpoint->netNs() == netNs ) {
         found.push_back( endpoint );
      }
   }
   return found;
}

U64 PacketEndpointProvider::sharedBursts() const noexcept {
   return shared_->pool.sharedBursts;
}

} // namespace Valen::Linux
