#include "valend/kernel/LinkWatch.h"

#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"

#include <net/if.h>

namespace Valend {

// Watches one device, which keeps its name for life.
class LinkWatch::DeviceSm final : public Quill::Reactor {
   QUILL_TRACKED( Valend::LinkWatch::DeviceSm )
 public:
   DeviceSm( LinkWatch & watch, LinkPlace place,
             Quill::Ptr< KernelNetInfo::Interface const > device )
       : watch_( watch ), place_( std::move( place ) ), device_( *this, std::move( device ) ) {
      handleFlags();
   }

   char const * reactorName() const noexcept override { return "DeviceSm"; }
   U32 ifIndex() const { return device_.get()->ifIndex(); }
   LinkPlace const & place() const noexcept { return place_; }
   KernelNetInfo::Interface const * device() const noexcept { return device_.get(); }

   void handleFlags() {
      auto const seen = device_.get()->flags() & IFF_UP ? LinkSeen::up : LinkSeen::down;
      if ( last_ != seen ) {
         last_ = seen;
         watch_.report( place_, seen );
      }
   }

 private:
   LinkWatch & watch_;
   LinkPlace const place_;
   std::optional< LinkSeen > last_;
   Quill::Watch< DeviceSm, KernelNetInfo::Interface const,
                 Quill::On< KernelNetInfo::Interface::flagsAttr, &DeviceSm::handleFlags > >
      device_;
};

// Watches the devices of one namespace.
class LinkWatch::NamespaceSm final : public Quill::Reactor {
   QUILL_TRACKED( Valend::LinkWatch::NamespaceSm )
 public:
   NamespaceSm( LinkWatch & watch, std::string netNs,
                Quill::Ptr< KernelNetInfo::Status const > status )
       : watch_( watch ), netNs_( std::move( netNs ) ), status_( *this, std::move( status ) ) {
      for ( auto const & device : status_.get()->interface() ) {
         handleInterface( device->ifIndex() );
      }
   }

   char const * reactorName() const noexcept override { return "NamespaceSm"; }
   KernelNetInfo::Status const * status() const noexcept { return status_.get(); }

   void handleInterface( U32 ifIndex ) {
      auto const device = status_.get()->interface( ifIndex );
      auto const known = devices_.find( ifIndex );
      if ( known && known->device() == device.get() ) {
         return;
      }
      if ( known ) {
         watch_.report( known->place(), LinkSeen::gone );
         devices_.retire( ifIndex );
      }
      if ( device ) {
         devices_.findOrMake( ifIndex, watch_,
                              LinkPlace{ netNs_, device->deviceName().stdString() }, device );
      }
   }

 private:
   LinkWatch & watch_;
   std::string const netNs_;
   Quill::Watch< NamespaceSm, KernelNetInfo::Status const,
                 Quill::On< KernelNetInfo::Status::interfaceAttr, &NamespaceSm::handleInterface > >
      status_;
   Quill::Children< DeviceSm, &DeviceSm::ifIndex > devices_;
};

LinkWatch::LinkWatch() = default;
LinkWatch::~LinkWatch() = default;

void LinkWatch::report( LinkPlace const & place, LinkSeen seen ) const {
   if ( seen_ ) {
      seen_( place, seen );
   }
}

void LinkWatch::follow( std::string const & netNs,
                        Quill::Ptr< KernelNetInfo::Status const > status ) {
   auto const found = namespaces_.find( netNs );
   if ( found != namespaces_.end() && found->second->status() == status.get() ) {
      return;
   }
   if ( found != namespaces_.end() ) {
      namespaces_.erase( found );
   }
   if ( status ) {
      namespaces_.emplace( netNs, Quill::make< NamespaceSm >( *this, netNs, std::move( status ) ) );
   }
}

} // namespace Valend
