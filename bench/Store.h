// A state store with any number of interfaces, and the library running on it.
#pragma once

#include "agent/RunnabilitySm.h"
#include "platform/corvid/RawTxPam.h"
#include "platform/orrery/EntityManager.h"
#include "types/KernelNetInfo.h"
#include "types/ValenTypes.h"

#include <map>
#include <string>
#include <vector>

namespace Valen::Bench {

// Interfaces "Ethernet0", "Ethernet1" ... on devices "e0", "e1" ..., each with `texts` queued frames
// of each of `agents` agents. They are distributed over the VRFs "vrf0", "vrf1" ... in the namespaces
// "ns0", "ns1" ...; with `vrfs` 0, all are in the default VRF. All frames differ.
struct Population {
   U32 intfs = 1;
   U32 vrfs = 0;
   U32 agents = 1;
   U32 texts = 3;
   std::size_t textBytes = 64;
   bool realDevices = false; // whether the devices are looked up in the kernel
};

class Store final : private Orrery::MountProvider {
 public:
   explicit Store( Population const & population );
   ~Store() override;
   Store( Store const & ) = delete;
   Store & operator=( Store const & ) = delete;

   // Enables the delay: the library replays the whole store. Throws if an interface is not ready
   // afterwards.
   void start();
   // Disables the delay: the library destroys everything.
   void stop();

   // The operator's requests, for one interface after the other.
   void shutdownAll();
   void enableAll();
   // Removes the VRF's local status, as before its namespace is deleted.
   void vrfDel( U32 number );

   // By the interface's number.
   U32 ifIndex( U32 number ) const { return ifIndexes_[ number ]; }
   Quill::Ptr< Config::Agent::Message > const & message( U32 number ) const {
      return messages_[ number ];
   }
   U32 delayed() const; // number of interfaces that are held

 private:
   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override;
   void unmount( std::string_view path ) override;

   void addIntf( U32 number );
   void addMessage( Corvid::IntfId const & intfId, U32 agent );
   void addDevice( Corvid::NamespaceName const & netNs, std::string const & deviceName );
   void addVrf( U32 number );

   Population const population_;
   std::map< std::string, Quill::Ptr< KernelNetInfo::Status >, std::less<> > devices_; // by path
   std::vector< Quill::Ptr< Config::Agent::MessageDir > > messageDirs_;                // by agent
   std::vector< Quill::Ptr< Config::Agent::Message > > messages_; // the first agent's
   std::vector< Quill::Ptr< Interface::IntfConfig > > intfConfigs_;
   std::vector< U32 > ifIndexes_;
   Quill::Ptr< Config::GlobalConfig > const globalConfig_;
   Quill::Ptr< Config::ConfigDir > const configDir_;
   Quill::Ptr< Quill::Dir > const agentConfigDir_;
   Quill::Ptr< Interface::AllIntfConfigDir > const allIntfConfigDir_;
   Quill::Ptr< Interface::AllIntfStatusDir > const allIntfStatusDir_;
   Quill::Ptr< Interface::AllIntfStatusLocalDir > const allIntfStatusLocalDir_;
   Quill::Ptr< L3::Intf::StatusDir > const l3IntfStatusDir_;
   Quill::Ptr< Ip::AllVrfStatusLocal > const allVrfStatusLocal_;
   Quill::Ptr< Orrery::EntityManager > const entityManager_;
   Quill::Ptr< Status::StatusDir > const statusDir_;
   Quill::Ptr< RunnabilitySm > library_;
};

// While it exists, endpoints accept every packet and send none.
class DroppingEndpoints final : public Corvid::RawTxPamProvider {
 public:
   DroppingEndpoints() : old_( Corvid::rawTxPamProviderIs( this ) ) {}
   ~DroppingEndpoints() override { Corvid::rawTxPamProviderIs( old_ ); }

   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String name ) override;

 private:
   Corvid::RawTxPamProvider * const old_;
};

} // namespace Valen::Bench
