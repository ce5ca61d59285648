#include "linux/DeviceWatcher.h"

#include <array>
#include <linux/if_arp.h>
#include <sys/epoll.h>

namespace Valen::Linux {

namespace {

constexpr int datagramsPerTurn = 64; // so that other descriptors get their turn
constexpr auto firstPause = std::chrono::milliseconds( 10 );
constexpr auto lastPause = std::chrono::milliseconds( 2000 );

} // namespace

DeviceWatcher::DeviceWatcher( EventLoop & loop, NetNs const & netNs,
                              Quill::Ptr< KernelNetInfo::Status > status, int receiveBuffer )
    : loop_( loop ), identity_( netNs.identity ), status_( std::move( status ) ),
      socket_( std::in_place, netNs, receiveBuffer ), pause_( firstPause, lastPause ),
      retryTimer_( loop.scheduler(), "rtnetlink retry", [ this ] { startDump(); } ) {
   for ( auto const & interface : status_->interface() ) {
      indexes_[ interface->deviceName().stdString() ] = interface->ifIndex();
   }
   loop_.descriptorIs( socket_->fd(), EPOLLIN, "rtnetlink of " + netNs.name,
                       [ this ]( U32 ) { readable(); } );
   startDump();
}

DeviceWatcher::~DeviceWatcher() {
   close();
}

U32 DeviceWatcher::ifIndex( Quill::Name const & deviceName ) const noexcept {
   auto const found = indexes_.find( deviceName.stdString() );
   return found == indexes_.end() ? 0 : found->second;
}

LinkState DeviceWatcher::state( LinkId const & link ) const {
   return linkState( socket_ ? socket_->fd() : -1, link );
}

void DeviceWatcher::close() noexcept {
   retryTimer_.stop();
   if ( socket_ ) {
      loop_.descriptorDel( socket_->fd() );
      socket_.reset();
   }
}

// --- Messages ------------------------------------------------------------------------------------

void DeviceWatcher::readable() {
   std::array< std::byte, RtnetlinkSocket::datagramBytes > buffer;
   for ( int i = 0; i < datagramsPerTurn && socket_; ++i ) {
      std::span< std::byte const > bytes;
      switch ( socket_->receive( buffer, bytes ) ) {
      case RtnetlinkSocket::Received::datagram:
         datagram( bytes );
         break;
      case RtnetlinkSocket::Received::lost:
         resync();
         break;
      case RtnetlinkSocket::Received::nothing:
         return;
      }
   }
}

void DeviceWatcher::datagram( std::span< std::byte const > bytes ) {
   Rtnetlink::Parser parser( bytes );
   Rtnetlink::Message message;
   while ( socket_ && parser.next( message ) ) { // a watcher of the status may call close()
      this->message( message );
   }
   if ( socket_ && parser.damaged() ) {
      resync();
   }
}

void DeviceWatcher::message( Rtnetlink::Message const & message ) {
   using Kind = Rtnetlink::Message::Kind;
   bool const ofDump = dumping_ && message.sequence == dumpSequence_;
   dumpAgain_ |= ofDump && message.interrupted;
   switch ( message.kind ) {
   case Kind::link:
      return link( message );
   case Kind::linkDel:
      return linkDel( message.ifIndex );
   case Kind::overrun:
      return resync();
   case Kind::done:
   case Kind::error:
      if ( ofDump && message.error ) {
         dumpRejected();
      } else if ( ofDump ) {
         dumpDone();
      }
      return;
   case Kind::other:
      return;
   }
}

// --- The devices ---------------------------------------------------------------------------------

void DeviceWatcher::link( Rtnetlink::Message const & message ) {
   if ( message.deviceName.empty() ) {
      return;
   }
   auto const ifIndex = message.ifIndex;
   Quill::Name const name( message.deviceName );
   Quill::Name const linkLayer(
      message.hardwareType == ARPHRD_ETHER ? "" : Rtnetlink::linkLayerOf( message.hardwareType ) );
   marked_.insert( ifIndex );
   if ( auto const known = status_->interface( ifIndex );
        known && known->deviceName() == name && known->linkLayer() == linkLayer ) {
      known->mtuIs( message.mtu );
      known->carrierUpsIs( message.carrierUps );
      known->flagsIs( message.flags );
      return;
   }
   // A device is published complete, so one that was renamed, or has another link layer now, is removed
   // and added again. Names are unique: if another index has this name, its device has been deleted or renamed.
   linkDel( ifIndex );
   if ( auto const former = indexes_.find( name.stdString() ); former != indexes_.end() ) {
      linkDel( former->second );
   }
   if ( !socket_ || status_->interfaceHas( ifIndex ) ) {
      return;
   }
   auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
   device->deviceNameIs( name );
   device->flagsIs( message.flags );
   device->mtuIs( message.mtu );
   device->linkLayerIs( linkLayer );
   device->carrierUpsIs( message.carrierUps );
   marked_.insert( ifIndex );
   indexes_[ name.stdString() ] = ifIndex;
   status_->interfaceAdd( device );
}

void DeviceWatcher::linkDel( U32 ifIndex ) {
   marked_.erase( ifIndex );
   if ( auto const device = status_->interface( ifIndex ) ) {
      indexes_.erase( device->deviceName().stdString() );
      status_->interfaceDel( ifIndex );
   }
}

// --- The dump ------------------------------------------------------------------------------------

void DeviceWatcher::startDump() {
   marked_.clear();
   dumpAgain_ = false;
   dumping_ = true;
   try {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      socket_->send( Rtnetlink::dumpRequest( ++dumpSequence_ ) );
   } catch ( Quill::ErrnoException const & ) {
      dumpRejected();
   }
}

void DeviceWatcher::resync() {
   if ( dumping_ ) {
      dumpAgain_ = true; // the kernel runs one dump per socket at a time
   } else if ( !retryTimer_.running() ) {
      status_->resyncsIs( status_->resyncs() + 1 );
      status_->synchronizedIs( false );
      startDump();
   }
}

void DeviceWatcher::dumpDone() {
   dumping_ = false;
   if ( dumpAgain_ ) {
      return resync();
   }
   pause_.reset();
   sweep();
   status_->synchronizedIs( true );
}

// The kernel is short of memory, or another dump is still running: try again later.
void DeviceWatcher::dumpRejected() {
   dumping_ = false;
   retryTimer_.start( pause_.take() );
}

void DeviceWatcher::sweep() {
   for ( auto const & device : status_->interface() ) {
      if ( !marked_.contains( device->ifIndex() ) ) {
         linkDel( device->ifIndex() );
      }
   }
   marked_.clear();
}

} // namespace Valen::Linux
