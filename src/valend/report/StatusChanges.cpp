#include "valend/report/StatusChanges.h"

#include <set>

namespace Valend {

using Quill::Entity;
using Quill::Ptr;

// Calls a function for each change of an entity.
class StatusChanges::Follower final : public Quill::NotifieeOf< Entity const > {
 public:
   // `key` is the display form of the key of a collection's element.
   using Changed = std::function< void( Quill::AttrId attribute, std::string const & key ) >;

   Follower( Ptr< Entity const > entity, Changed changed ) : changed_( std::move( changed ) ) {
      notifierIs( std::move( entity ) );
   }

   void onAttribute( Quill::AttrId attributeId, void const * key ) override {
      auto const * const attribute = notifier()->entityType().attribute( attributeId );
      changed_( attributeId, key ? attribute->keyText( key ) : "" );
   }

 private:
   Changed const changed_;
};

// Follows the devices of one namespace.
class StatusChanges::Devices {
 public:
   Devices( StatusChanges & changes, std::string netNs, Ptr< KernelNetInfo::Status const > status )
       : changes_( changes ), netNs_( std::move( netNs ) ), status_( status ),
         follower_( status, [ this ]( auto attribute, auto const & key ) {
            if ( attribute == KernelNetInfo::Status::interfaceAttr::id ) {
               follow( static_cast< U32 >( std::stoul( key ) ) );
            }
         } ) {
      for ( auto const & device : status_->interface() ) {
         follow( device->ifIndex() );
      }
   }

   KernelNetInfo::Status const * status() const noexcept { return status_.get(); }

 private:
   struct Device {
      std::string name; // the last one that was told
      std::unique_ptr< Follower > follower;
   };

   // The device of that index appeared, was exchanged or disappeared.
   void follow( U32 ifIndex ) {
      if ( auto const known = devices_.extract( ifIndex ) ) {
         changed( known.mapped().name );
      }
      auto const device = status_->interface( ifIndex );
      if ( !device ) {
         return;
      }
      auto const name = device->deviceName().stdString();
      changed( name );
      devices_[ ifIndex ] = { name, std::make_unique< Follower >(
                                       device, [ this, ifIndex ]( auto attribute, auto const & ) {
                                          attributeChanged( ifIndex, attribute );
                                       } ) };
   }

   void attributeChanged( U32 ifIndex, Quill::AttrId attribute ) {
      auto & known = devices_.at( ifIndex );
      changed( known.name );
      auto const device = status_->interface( ifIndex );
      if ( device && attribute == KernelNetInfo::Interface::deviceNameAttr::id ) {
         known.name = device->deviceName().stdString();
         changed( known.name );
      }
   }

   void changed( std::string const & name ) const { changes_.changed_.device( { netNs_, name } ); }

   StatusChanges & changes_;
   std::string const netNs_;
   Ptr< KernelNetInfo::Status const > const status_;
   std::map< U32, Device > devices_; // by index
   Follower follower_;
};

StatusChanges::StatusChanges( Store const & store, Feeder const & feeder, Changed changed )
    : store_( store ), feeder_( feeder ), changed_( std::move( changed ) ) {
   using Valen::Status::StatusDir;
   dirs_.push_back(
      std::make_unique< Follower >( store.statusDir, [ this ]( auto attribute, auto const & key ) {
         if ( attribute == StatusDir::intfStatusAttr::id ) {
            follow( key );
            changed_.interface( key );
         }
      } ) );
   dirs_.push_back(
      std::make_unique< Follower >( store.allIntfConfigDir, [ this ]( auto, auto const & key ) {
         if ( !key.empty() ) {
            changed_.interface( key );
         }
      } ) );
   for ( auto const & status : store.statusDir->intfStatus() ) {
      follow( status->intfId().stdString() );
   }
   followNamespaces();
}

StatusChanges::~StatusChanges() = default;

void StatusChanges::follow( std::string const & interface ) {
   auto const status = store_.statusDir->intfStatus( Corvid::IntfId( interface ) );
   if ( !status ) {
      interfaces_.erase( interface );
      return;
   }
   interfaces_[ interface ] = std::make_unique< Follower >(
      status, [ this, interface ]( auto, auto const & ) { changed_.interface( interface ); } );
}

void StatusChanges::followNamespaces() {
   auto const & config = feeder_.config();
   std::set< std::string > wanted{ config.netNsOf( Settings::defaultVrf ) };
   for ( auto const & [ vrf, netNs ] : config.vrfs ) {
      wanted.insert( netNs );
   }
   std::erase_if( namespaces_,
                  [ & ]( auto const & entry ) { return !wanted.contains( entry.first ); } );
   for ( auto const & netNs : wanted ) {
      auto const status = Quill::ptrCast< KernelNetInfo::Status const >( Ptr< Entity const >(
         store_.entityManager->mounted( "kni/ns/" + netNs + "/status" ).get() ) );
      auto & devices = namespaces_[ netNs ];
      if ( !status ) {
         devices = nullptr;
      } else if ( !devices || devices->status() != status.get() ) {
         devices = std::make_unique< Devices >( *this, netNs, status );
      }
   }
}

} // namespace Valend
