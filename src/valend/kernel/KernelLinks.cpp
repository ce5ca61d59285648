#include "valend/kernel/KernelLinks.h"

#include "linux/Capabilities.h"

#include <cerrno>
#include <net/if.h>

namespace Valend {

using Valen::Linux::KernelNetInfoProvider;

KernelLinks::KernelLinks( Valen::Linux::EventLoop & loop,
                          Valen::Linux::NetNsDirectories directories,
                          Valen::Linux::PacketEndpointProvider const & endpoints,
                          Conditions & conditions )
    : netNsDirectories_( directories ), endpoints_( endpoints ), devices_( loop, directories ),
      control_( directories ), conditions_( conditions ) {}

// --- Devices -------------------------------------------------------------------------------------

void KernelLinks::netNssAre( std::set< std::string > const & netNss ) {
   std::set< std::string, std::less<> > wanted;
   for ( auto const & netNs : netNss ) {
      wanted.insert( KernelNetInfoProvider::path( Corvid::NamespaceName( netNs ) ) );
   }
   for ( auto const & netNs : netNss_ ) {
      if ( !netNss.contains( netNs ) ) {
         unfollow( netNs );
      }
   }
   netNss_ = netNss;
   auto const before = std::exchange( ours_, std::move( wanted ) );
   for ( auto const & path : ours_ ) {
      devices_.mount( path );
   }
   for ( auto const & netNs : netNss_ ) {
      follow( netNs );
   }
   for ( auto const & path : before ) {
      if ( !ours_.contains( path ) && !theirs_.contains( path ) ) {
         devices_.unmount( path );
      }
   }
}

void KernelLinks::follow( std::string const & netNs ) {
   auto const status = devices_.status( Corvid::NamespaceName( netNs ) );
   watch_.follow( netNs, status );
   auto & condition = deviceConditions_[ netNs ];
   if ( !condition && status ) {
      condition = Quill::make< DeviceCondition >( conditions_, *this, status );
   }
}

void KernelLinks::unfollow( std::string const & netNs ) {
   watch_.follow( netNs, nullptr );
   deviceConditions_.erase( netNs );
}

Quill::Ptr< Quill::Entity > KernelLinks::mount( std::string_view path ) {
   theirs_.emplace( path );
   return devices_.mount( path );
}

void KernelLinks::unmount( std::string_view path ) {
   auto const found = theirs_.find( path );
   if ( found == theirs_.end() ) {
      return;
   }
   theirs_.erase( found );
   if ( !ours_.contains( path ) ) {
      devices_.unmount( path );
   }
}

void KernelLinks::refresh( std::string const & netNs ) {
   devices_.refresh( Corvid::NamespaceName( netNs ) );
}

// Why the devices of the namespace are unknown; empty when they are known.
std::string KernelLinks::errorOf( std::string const & netNs ) const {
   auto const status = devices_.status( Corvid::NamespaceName( netNs ) );
   return status ? status->error().stdString() : "the namespace is not watched";
}

std::optional< LinkDevice > KernelLinks::device( LinkPlace const & place ) const {
   auto const status = devices_.status( Corvid::NamespaceName( place.netNs ) );
   if ( !status ) {
      return std::nullopt;
   }
   Quill::Name const name( place.device );
   for ( auto const & device : status->interface() ) {
      if ( device->deviceName() == name ) {
         return LinkDevice{ device->ifIndex(),
                            ( device->flags() & IFF_UP ) != 0,
                            ( device->flags() & IFF_RUNNING ) != 0,
                            device->mtu(),
                            device->carrierUps(),
                            device->linkLayer().stdString() };
      }
   }
   return std::nullopt;
}

LinkDevice KernelLinks::requireDevice( LinkPlace const & place ) const {
   if ( auto const found = device( place ) ) {
      return *found;
   }
   auto const why = errorOf( place.netNs );
   throw Quill::ErrnoException( "no device \"" + place.device + "\" in namespace \"" + place.netNs +
                                   "\"" + ( why.empty() ? "" : ": " + why ),
                                ENODEV );
}

// --- Links ---------------------------------------------------------------------------------------

bool KernelLinks::up( LinkPlace const & place ) {
   return control_.state( Corvid::NamespaceName( place.netNs ), requireDevice( place ).ifIndex,
                          Quill::Name( place.device ) ) == Valen::Linux::LinkState::up;
}

void KernelLinks::setUp( LinkPlace const & place ) {
   stateIs( place, Valen::Linux::LinkState::up );
}

void KernelLinks::setDown( LinkPlace const & place ) {
   stateIs( place, Valen::Linux::LinkState::down );
}

void KernelLinks::stateIs( LinkPlace const & place, Valen::Linux::LinkState state ) {
   control_.stateIs( Corvid::NamespaceName( place.netNs ), requireDevice( place ).ifIndex,
                     Quill::Name( place.device ), state );
}

// --- Frames --------------------------------------------------------------------------------------

LinkPort::Counters KernelLinks::counters( std::string const & netNs ) const {
   Counters sum;
   for ( auto const * endpoint : endpoints_.endpoints( Corvid::NamespaceName( netNs ) ) ) {
      sum.sent += endpoint->counters().sent;
      sum.failed += endpoint->counters().failed;
   }
   return sum;
}

std::vector< RefusedPacket > KernelLinks::refused( LinkPlace const & place ) const {
   std::vector< RefusedPacket > refused;
   auto const found = device( place );
   for ( auto const * endpoint : endpoints_.endpoints( Corvid::NamespaceName( place.netNs ) ) ) {
      if ( !found || !endpoint->enabled() || endpoint->burst().ifIndex != found->ifIndex ) {
         continue;
      }
      auto const * const error = endpoint->sendError( found->ifIndex );
      for ( auto const & [ packet, number ] : endpoint->burst().refused ) {
         refused.push_back( { packet, number,
                              error && error->number == number
                                 ? error->text
                                 : Valen::Linux::errorText( number ) } );
      }
   }
   return refused;
}

U64 KernelLinks::outstandingBytes( LinkPlace const & place ) const {
   U64 sum = 0;
   auto const found = device( place );
   for ( auto const * endpoint : endpoints_.endpoints( Corvid::NamespaceName( place.netNs ) ) ) {
      sum += found ? endpoint->outstandingBytes( found->ifIndex ) : 0;
   }
   return sum;
}

U64 KernelLinks::resyncs() const {
   U64 sum = 0;
   for ( auto const & netNs : netNss_ ) {
      auto const status = devices_.status( Corvid::NamespaceName( netNs ) );
      sum += status ? status->resyncs() : 0;
   }
   return sum;
}

// --- Namespaces ----------------------------------------------------------------------------------

NamespaceView KernelLinks::look( std::string const & name ) const {
   try {
      auto const netNs = netNsDirectories_.open( Corvid::NamespaceName( name ) );
      return { netNs.identity.text(),
               Valen::Linux::mayChangeLinks( netNs )
                  ? ""
                  : "no privilege to set links in network namespace \"" + name +
                       "\" up or down; grant CAP_NET_ADMIN (AmbientCapabilities= of the unit)",
               false };
   } catch ( Quill::ErrnoException const & e ) {
      return { "", e.text(), e.number() == ENOENT };
   }
}

} // namespace Valend
