#include "Store.h"

#include "Devices.h"

#include <stdexcept>
#include <string_view>
#include <utility>

namespace Valen::Bench {

namespace {

class DroppingEndpoint final : public Corvid::RawTxPam {
 public:
   explicit DroppingEndpoint( Quill::String name ) : RawTxPam( std::move( name ) ) {}

   void enabledIs( bool enabled ) override { enabled_ = enabled; }
   bool enabled() const noexcept override { return enabled_; }
   void burstIs( U32 /* ifIndex */, Quill::String const & /* deviceName */ ) override {}
   bool send( Corvid::Pkt const & pkt, U32 /* ifIndex */ ) override {
      bytes_ += pkt.length();
      return true;
   }
   int lastErrno() const noexcept override { return 0; }

 private:
   bool enabled_ = false;
   U64 bytes_ = 0; // the least that a send reads
};

std::string numbered( char const * prefix, U32 number ) {
   return std::string( prefix ).append( std::to_string( number ) );
}

} // namespace

Quill::Ptr< Corvid::RawTxPam > DroppingEndpoints::newRawTxPam( Quill::String name ) {
   return Quill::make< DroppingEndpoint >( std::move( name ) );
}

Store::Store( Population const & population )
    : population_( population ), globalConfig_( Quill::make< Config::GlobalConfig >() ),
      configDir_( Quill::make< Config::ConfigDir >() ),
      agentConfigDir_( Quill::make< Quill::Dir >() ),
      allIntfConfigDir_( Quill::make< Interface::AllIntfConfigDir >() ),
      allIntfStatusDir_( Quill::make< Interface::AllIntfStatusDir >() ),
      allIntfStatusLocalDir_( Quill::make< Interface::AllIntfStatusLocalDir >() ),
      l3IntfStatusDir_( Quill::make< L3::Intf::StatusDir >() ),
      allVrfStatusLocal_( Quill::make< Ip::AllVrfStatusLocal >() ),
      entityManager_( Quill::make< Orrery::EntityManager >() ),
      statusDir_( Quill::make< Status::StatusDir >() ) {
   globalConfig_->shutdownDelayMsIs( 60'000 );
   entityManager_->mountProviderIs( "kni/ns/", this );
   for ( U32 i = 0; i < population_.agents; ++i ) {
      messageDirs_.push_back( Quill::make< Config::Agent::MessageDir >() );
      auto const agentDir = Quill::make< Quill::Dir >();
      agentDir->entryIs( "messages", messageDirs_.back() );
      agentConfigDir_->entryIs( numbered( "agent", i ), agentDir );
   }
   for ( U32 i = 0; i < population_.vrfs; ++i ) {
      addVrf( i );
   }
   for ( U32 i = 0; i < population_.intfs; ++i ) {
      addIntf( i );
   }
   library_ =
      runnabilitySmFactory( configDir_, agentConfigDir_, allIntfConfigDir_, allIntfStatusDir_,
                            allIntfStatusLocalDir_, l3IntfStatusDir_, allVrfStatusLocal_,
                            entityManager_, statusDir_, allVrfFactory(), allIntfFactory() );
}

Store::~Store() {
   stop();
   library_ = nullptr;
   entityManager_->mountProviderIs( "kni/ns/", nullptr );
}

void Store::addVrf( U32 number ) {
   auto const vrf = allVrfStatusLocal_->vrfIs( numbered( "vrf", number ) );
   vrf->networkNamespaceIs( numbered( "ns", number ) );
   vrf->stateIs( Ip::VrfState::active );
}

void Store::addIntf( U32 number ) {
   Corvid::IntfId const intfId( numbered( "Ethernet", number ) );
   auto const deviceName = numbered( "e", number );
   for ( U32 i = 0; i < population_.agents; ++i ) {
      addMessage( intfId, i );
   }
   auto const intfConfig = allIntfConfigDir_->intfConfigIs( intfId );
   intfConfig->adminShutdownDelaySupportedIs( true );
   intfConfigs_.push_back( intfConfig );
   allIntfStatusDir_->intfStatusIs( intfId )->deviceNameIs( deviceName );
   bool const named = population_.vrfs > 0;
   auto const vrf = named ? number % population_.vrfs : 0;
   l3IntfStatusDir_->intfStatusIs( intfId )->vrfIs( named ? numbered( "vrf", vrf ) : "default" );
   Corvid::NamespaceName const netNs( named ? numbered( "ns", vrf ) : "default" );
   allIntfStatusLocalDir_->intfStatusLocalIs( intfId )->netNsNameIs( netNs );
   addDevice( netNs, deviceName );
}

void Store::addMessage( Corvid::IntfId const & intfId, U32 agent ) {
   auto const message = Quill::make< Config::Agent::Message >( intfId );
   for ( U32 i = 0; i < population_.texts; ++i ) {
      message->messageEnq( frame( population_.textBytes ) );
   }
   messageDirs_[ agent ]->messageIs( intfId, message );
   if ( agent == 0 ) {
      messages_.push_back( message );
   }
}

void Store::addDevice( Corvid::NamespaceName const & netNs, std::string const & deviceName ) {
   auto const path = "kni/ns/" + netNs.stdString() + "/status";
   auto & devices = devices_[ path ];
   if ( !devices ) {
      devices = Quill::make< KernelNetInfo::Status >( netNs );
   }
   auto const ifIndex = population_.realDevices ? deviceIndex( deviceName )
                                                : static_cast< U32 >( ifIndexes_.size() + 1 );
   ifIndexes_.push_back( ifIndex );
   auto const device = Quill::make< KernelNetInfo::Interface >( ifIndex );
   device->deviceNameIs( deviceName );
   devices->interfaceAdd( device );
}

void Store::start() {
   configDir_->globalConfigIs( globalConfig_ );
   if ( statusDir_->intfStatuss() != population_.intfs ) {
      throw std::runtime_error( "only " + std::to_string( statusDir_->intfStatuss() ) + " of " +
                                std::to_string( population_.intfs ) + " interfaces are ready" );
   }
}

void Store::stop() {
   configDir_->globalConfigIs( nullptr );
}

void Store::shutdownAll() {
   for ( auto const & intfConfig : intfConfigs_ ) {
      intfConfig->adminShutdownDelayedIs( true );
   }
}

void Store::enableAll() {
   for ( auto const & intfConfig : intfConfigs_ ) {
      intfConfig->adminShutdownDelayedIs( false );
   }
}

void Store::vrfDel( U32 number ) {
   allVrfStatusLocal_->vrfDel( numbered( "vrf", number ) );
}

U32 Store::delayed() const {
   U32 count = 0;
   for ( auto const & status : statusDir_->intfStatus() ) {
      count += status->delayed() ? 1 : 0;
   }
   return count;
}

Quill::Ptr< Quill::Entity > Store::mount( std::string_view path ) {
   auto const found = devices_.find( path );
   return found == devices_.end() ? nullptr : found->second;
}

void Store::unmount( std::string_view /* path */ ) {}

} // namespace Valen::Bench
