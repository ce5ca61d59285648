// Namespaces, devices and links, as the kernel would have them.
#pragma once

#include "platform/orrery/EntityManager.h"
#include "platform/quill/Exception.h"
#include "tests/support/RecordingRawTxPam.h"
#include "types/KernelNetInfo.h"
#include "valend/kernel/LinkPort.h"
#include "valend/kernel/Namespaces.h"

#include <cerrno>
#include <map>
#include <string>
#include <vector>

namespace Valend::Test {

class FakeKernel final : public LinkPort, public Namespaces, public Orrery::MountProvider {
 public:
   explicit FakeKernel( Valen::Test::RecordingRawTxPams const & sent ) : sent_( sent ) {
      netNsIs( "default", "1:1" );
   }

   void netNsIs( std::string const & name, std::string const & identity ) {
      identities_[ name ] = identity;
   }
   void netNsDel( std::string const & name ) { identities_.erase( name ); }

   // An empty `linkLayer` is Ethernet.
   void deviceIs( std::string const & netNs, std::string const & name, U32 ifIndex,
                  std::string const & linkLayer = "" ) {
      auto const entity = Quill::make< KernelNetInfo::Interface >( ifIndex );
      entity->deviceNameIs( name );
      entity->linkLayerIs( Quill::Name( linkLayer ) );
      status( netNs )->interfaceDel( ifIndex );
      status( netNs )->interfaceAdd( entity );
      devices_[ { netNs, name } ] = { ifIndex, true, true, 1500, 0, linkLayer };
   }
   void deviceDel( std::string const & netNs, std::string const & name ) {
      auto const found = devices_.find( { netNs, name } );
      auto const ifIndex = found->second.ifIndex;
      devices_.erase( found );
      status( netNs )->interfaceDel( ifIndex );
   }
   LinkDevice & at( std::string const & netNs, std::string const & name ) {
      return devices_.at( { netNs, name } );
   }

   // What was done to links, in order: "down default/et1".
   std::vector< std::string > actions;
   int setErrno = 0;    // every setUp() and setDown() fails with it
   int upErrno = 0;     // every up() fails with it
   U64 outstanding = 0; // bytes of each device that is not in outstandingOf
   std::map< LinkPlace, U64 > outstandingOf;
   std::string lookError; // every look() but that of "default" fails with it

   mutable int looks = 0; // at devices

   std::optional< LinkDevice > device( LinkPlace const & place ) const override {
      ++looks;
      auto const found = devices_.find( place );
      return found == devices_.end() ? std::nullopt : std::optional( found->second );
   }
   bool up( LinkPlace const & place ) override {
      failIf( upErrno );
      return require( place ).up;
   }
   void setUp( LinkPlace const & place ) override {
      failIf( setErrno );
      require( place ).up = true;
      actions.push_back( "up " + place.netNs + "/" + place.device );
   }
   void setDown( LinkPlace const & place ) override {
      failIf( setErrno );
      require( place ).up = false;
      actions.push_back( "down " + place.netNs + "/" + place.device );
   }
   Counters counters( std::string const & ) const override {
      return { sent_.packets.size(), sent_.sends - sent_.packets.size() };
   }
   std::vector< RefusedPacket > refused( LinkPlace const & ) const override {
      std::vector< RefusedPacket > refused;
      for ( auto const packet : sent_.failedOfBurst ) {
         refused.push_back( { packet, sent_.sendErrno, "Network is down" } );
      }
      return refused;
   }
   U64 resyncs() const override { return 3; }
   U64 outstandingBytes( LinkPlace const & place ) const override {
      auto const found = outstandingOf.find( place );
      return found == outstandingOf.end() ? outstanding : found->second;
   }

   NamespaceView look( std::string const & name ) const override {
      auto const found = identities_.find( name );
      if ( !lookError.empty() && name != "default" ) {
         return { "", lookError, false };
      }
      return found == identities_.end() ? NamespaceView{ "", "no namespace " + name, true }
                                        : NamespaceView{ found->second, "", false };
   }

   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override {
      auto const netNs = path.substr( 7, path.size() - 7 - 7 ); // "kni/ns/NAME/status"
      return status( std::string( netNs ) );
   }
   void unmount( std::string_view ) override {}

 private:
   static void failIf( int number ) {
      if ( number ) {
         throw Quill::ErrnoException( "the kernel said " + std::to_string( number ), number );
      }
   }
   LinkDevice & require( LinkPlace const & place ) {
      auto const found = devices_.find( place );
      if ( found == devices_.end() ) {
         throw Quill::ErrnoException( "no device " + place.device, ENODEV );
      }
      return found->second;
   }
   Quill::Ptr< KernelNetInfo::Status > const & status( std::string const & netNs ) {
      auto & status = statuses_[ netNs ];
      if ( !status ) {
         status = Quill::make< KernelNetInfo::Status >( Corvid::NamespaceName( netNs ) );
      }
      return status;
   }

   Valen::Test::RecordingRawTxPams const & sent_;
   std::map< std::string, std::string > identities_;
   std::map< LinkPlace, LinkDevice > devices_;
   std::map< std::string, Quill::Ptr< KernelNetInfo::Status > > statuses_;
};

} // namespace Valend::Test
