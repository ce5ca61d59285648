#include "valend/kernel/KernelLinks.h"

#include "linux/Capabilities.h"

#include <cerrno>
#include <net/if.h>

namespace Valend {

using Valen::Linux::KernelNetInfoProvider;
using Valen::Linux::LinkState;
using Valen::Linux::LinkWorker;

KernelLinks::KernelLinks( Valen::Linux::EventLoop & loop,
                          Valen::Linux::NetNsDirectories directories,
                          Valen::Linux::PacketEndpointProvider const & endpoints,
                          Conditions & conditions )
    : netNsDirectories_( directories ), endpoints_( endpoints ), devices_( loop, directories ),
      worker_( loop, directories ), posted_( loop.workQueue(), "links" ),
      conditions_( conditions ) {}

bool LinkAnswer::missing() const noexcept {
   return error == ENODEV || error == ENOENT;
}

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
   worker_.netNssAre( netNss );
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
   worker_.refresh( netNs );
}

// Why the devices of the namespace are unknown; empty when they are known.
std::string KernelLinks::errorOf( std::string const & netNs ) const {
   auto const status = devices_.status( Corvid::NamespaceName( netNs ) );
   return status ? status->error().stdString() : "the namespace is not watched";
}

std::optional< LinkDevice > KernelLinks::device( LinkPlace const & place ) const {
   auto const device =
      devices_.device( Corvid::NamespaceName( place.netNs ), Quill::Name( place.device ) );
   if ( !device ) {
      return std::nullopt;
   }
   return LinkDevice{ device->ifIndex(),
                      ( device->flags() & IFF_UP ) != 0,
                      ( device->flags() & IFF_RUNNING ) != 0,
                      device->mtu(),
                      device->carrierUps(),
                      device->linkLayer().stdString() };
}

std::string KernelLinks::whyMissing( LinkPlace const & place ) const {
   auto const why = errorOf( place.netNs );
   return "no device \"" + place.device + "\" in namespace \"" + place.netNs + "\"" +
          ( why.empty() ? "" : ": " + why );
}

LinkDevice KernelLinks::requireDevice( LinkPlace const & place ) const {
   if ( auto const found = device( place ) ) {
      return *found;
   }
   throw Quill::ErrnoException( whyMissing( place ), ENODEV );
}

// --- Links ---------------------------------------------------------------------------------------

bool KernelLinks::up( LinkPlace const & place ) {
   return devices_.state( Corvid::NamespaceName( place.netNs ), requireDevice( place ).ifIndex,
                          Quill::Name( place.device ) ) == LinkState::up;
}

// Its device is missing: the answer is known.
class KernelLinks::Unmade final : public LinkRequest {
 public:
   Unmade( Gantry::PostedWork & posted, LinkAnswer answer,
           std::function< void( LinkAnswer const & answer ) > done ) {
      posted.post( [ dropped = std::weak_ptr( kept_ ), answer = std::move( answer ),
                     done = std::move( done ) ] {
         if ( !dropped.expired() ) {
            done( answer );
         }
      } );
   }

   bool begun() const override { return false; }
   bool withdraw() override {
      kept_ = nullptr;
      return true;
   }

 private:
   std::shared_ptr< char > kept_ = std::make_shared< char >();
};

// The worker makes it.
class KernelLinks::Made final : public LinkRequest {
 public:
   Made( LinkWorker & worker, LinkWorker::Id id ) : worker_( worker ), id_( id ) {}
   ~Made() override { worker_.forget( id_ ); }

   bool begun() const override { return worker_.begun( id_ ); }
   bool withdraw() override { return worker_.withdraw( id_ ); }

 private:
   LinkWorker & worker_;
   LinkWorker::Id const id_;
};

std::unique_ptr< LinkRequest >
KernelLinks::request( LinkPlace const & place, LinkChange change, Gantry::Time deadline,
                      std::function< void( LinkAnswer const & answer ) > done ) {
   auto const found = device( place );
   if ( !found ) {
      return std::make_unique< Unmade >( posted_, LinkAnswer{ ENODEV, whyMissing( place ), false },
                                         std::move( done ) );
   }
   auto const id =
      worker_.request( { place.netNs, place.device, found->ifIndex },
                       change == LinkChange::up ? LinkState::up : LinkState::down, deadline,
                       [ done = std::move( done ) ]( LinkWorker::Answer const & answer ) {
                          done( { answer.error, answer.why, answer.changed } );
                       } );
   return std::make_unique< Made >( worker_, id );
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
