// The state store of an agent, with any number of interfaces, and the library that runs on it.
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

// Interfaces "Ethernet0", "Ethernet1" ... on devices "e0", "e1" ..., each with `texts` queued texts
// by each of `agents` agents. They are dealt to the VRFs "vrf0", "vrf1" ..., which stand in the
// namespaces "ns0", "ns1" ...; without any, all are in the default VRF. No two share a text.
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

   // Switches the feature on: the library replays the whole store. Throws when not every interface
   // is ready afterwards.
   void start();
   // Switches the feature off: everything is torn down.
   void stop();

   // What the operator does to all interfaces, one after the other.
   void shutdownAll();
   void enableAll();
   // Takes the VRF's local status out: its namespace is about to go.
   void vrfDel( U32 number );

   // By the interface's number.
   U32 ifIndex( U32 number ) const { return ifIndexes_[ number ]; }
   Quill::Ptr< Config::Agent::Message > const & message( U32 number ) const {
      return messages_[ number ];
   }
   U32 delayed() const; // how many shutdowns are held

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

// Endpoints that take every packet and send none, while this lives.
class DroppingEndpoints final : public Corvid::RawTxPamProvider {
 public:
   DroppingEndpoints() : old_( Corvid::rawTxPamProviderIs( this ) ) {}
   ~DroppingEndpoints() override { Corvid::rawTxPamProviderIs( old_ ); }

   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String name ) override;

 private:
   Corvid::RawTxPamProvider * const old_;
};

} // namespace Valen::Bench
