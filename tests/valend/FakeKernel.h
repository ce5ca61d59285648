// Namespaces, devices and links, as the kernel would have them.
#pragma once

#include "platform/gantry/WorkQueue.h"
#include "platform/orrery/EntityManager.h"
#include "platform/quill/Exception.h"
#include "tests/support/RecordingRawTxPam.h"
#include "types/KernelNetInfo.h"
#include "valend/kernel/LinkPort.h"
#include "valend/kernel/Namespaces.h"

#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Valend::Test {

class FakeKernel final : public LinkPort, public Namespaces, public Orrery::MountProvider {
 public:
   FakeKernel( Valen::Test::RecordingRawTxPams const & sent, Gantry::WorkQueue & work )
       : sent_( sent ), work_( work ) {
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
   int setErrno = 0; // every change fails with it
   int upErrno = 0;  // every up() fails with it
   // Changes are made in the next turn, in the order of their deadlines. When busy, none begins; see begin().
   bool busy = false;
   bool stopped = false;

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
   std::unique_ptr< LinkRequest >
   request( LinkPlace const & place, LinkChange change, Gantry::Time deadline,
            std::function< void( LinkAnswer const & ) > done ) override {
      auto const request =
         std::make_shared< Request >( Request{ place, change, std::move( done ) } );
      if ( !stopped ) {
         queue_[ { deadline, ++requests_ } ] = request;
         work_.post( [ this ] { makeNext(); } );
      }
      return std::make_unique< Handle >( *this, request );
   }
   void stop() override {
      stopped = true;
      queue_.clear();
   }
   // How many changes have not begun.
   std::size_t queued() const { return queue_.size(); }
   // The first change begins, and is made: the kernel has not answered.
   void begin() {
      auto const node = queue_.extract( queue_.begin() );
      running_ = node.mapped();
      running_->answer = make( *running_ );
   }
   // The kernel answers it.
   void answer() {
      auto const request = std::exchange( running_, nullptr );
      if ( auto const done = std::exchange( request->done, nullptr ) ) { // else it was dropped
         done( request->answer );
      }
   }
   // The kernel goes on, and makes the changes that wait.
   void goOn() {
      busy = false;
      while ( !queue_.empty() ) {
         makeNext();
      }
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
   struct Request {
      LinkPlace place;
      LinkChange change;
      std::function< void( LinkAnswer const & ) > done;
      LinkAnswer answer = {};
   };

   class Handle final : public LinkRequest {
    public:
      Handle( FakeKernel & kernel, std::shared_ptr< Request > request )
          : kernel_( kernel ), request_( std::move( request ) ) {}
      ~Handle() override {
         withdraw();
         request_->done = nullptr;
      }

      bool begun() const override { return kernel_.running_ == request_; }
      bool withdraw() override {
         std::erase_if( kernel_.queue_,
                        [ & ]( auto const & entry ) { return entry.second == request_; } );
         return !begun();
      }

    private:
      FakeKernel & kernel_;
      std::shared_ptr< Request > const request_;
   };

   void makeNext() {
      if ( !busy && !running_ && !queue_.empty() ) {
         begin();
         answer();
      }
   }
   LinkAnswer make( Request const & request ) {
      auto const found = devices_.find( request.place );
      if ( found == devices_.end() ) {
         return { ENODEV, "no device " + request.place.device, false };
      }
      if ( setErrno ) {
         return { setErrno, "the kernel said " + std::to_string( setErrno ), false };
      }
      bool const up = request.change == LinkChange::up;
      if ( found->second.up == up ) {
         return {};
      }
      found->second.up = up;
      actions.push_back( ( up ? "up " : "down " ) + request.place.netNs + "/" +
                         request.place.device );
      return { 0, "", true };
   }
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
   Gantry::WorkQueue & work_;
   std::map< std::pair< Gantry::Time, U64 >, std::shared_ptr< Request > > queue_;
   std::shared_ptr< Request > running_; // made, and not answered
   U64 requests_ = 0;
   std::map< std::string, std::string > identities_;
   std::map< LinkPlace, LinkDevice > devices_;
   std::map< std::string, Quill::Ptr< KernelNetInfo::Status > > statuses_;
};

} // namespace Valend::Test
