// A well-behaved process around the whole library, with a plain model of what it has published,
// from which follows what the library must show after every single write:
//
//   an interface has a status entry exactly while the feature is on, the interface has messages, a
//   configuration that supports the delay, a layer-3 status in a VRF that is up, and a device in
//   that VRF's namespace. An entry says shouldDelay. It says delayed exactly while its timer runs.
#pragma once

#include "tests/agent/AgentStore.h"
#include "tests/support/FaultRecorder.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"

#include <optional>
#include <string>
#include <vector>

namespace Valen::Test {

class History {
 public:
   using Frames = std::vector< std::string >;

   struct Intf {
      std::string id;
      std::string mappedDevice;                 // which its IntfStatus names; empty: its own name
      std::map< std::string, Frames > messages; // by agent
      Quill::Ptr< Interface::IntfConfig > config;
      Quill::Ptr< L3::Intf::Status > l3Status;
      bool hasStatus = false;
      std::string localNetNs;              // which its IntfStatusLocal names; empty: any
      std::optional< Gantry::Time > until; // the end of the delay under way
   };
   struct VrfPicture {
      std::string name;
      std::string netNs;
      Quill::Ptr< Ip::VrfStatusLocal > status; // the default VRF needs none
      // Its endpoint could not be opened, so that nothing is promised for its interfaces until its
      // status is put in again.
      bool broken = false;
      bool keepsNetNs = false; // the library still has the namespace of when it was broken
   };
   struct Device {
      std::string name;
      U32 ifIndex;
   };

   History();
   ~History();

   // --- The writes. Each leaves the library in the state that the model demands.

   void start(); // the library; clears what a crash left
   void stop();
   void globalConfigIs( U16 delayMs );
   void globalConfigDel();
   void messageIs( Intf & intf, std::string const & agent, Frames frames );
   void messageDel( Intf & intf, std::string const & agent );
   void agentIs( std::string const & agent ); // with the messages that `intfs` have of it
   void agentDel( std::string const & agent );
   void configIs( Intf & intf, bool supported, bool shutdown );
   void configDel( Intf & intf );
   void shutdownIs( Intf & intf, bool shutdown );
   void l3StatusIs( Intf & intf, std::string const & vrf ); // published, or moved in place
   void l3StatusDel( Intf & intf );
   void intfStatusIs( Intf & intf, bool present );
   void localNetNsIs( Intf & intf, std::string const & netNs );
   void vrfIs( VrfPicture & vrf, std::string const & netNs, Ip::VrfState state );
   void vrfStateIs( VrfPicture & vrf, Ip::VrfState state );
   void vrfDel( VrfPicture & vrf );
   // The endpoint of the VRF fails to open with `error` while its status is added.
   void vrfBreaks( VrfPicture & vrf, std::string const & netNs, int error );
   void deviceIs( std::string const & netNs, std::string const & name );
   void deviceRename( std::string const & netNs, U32 ifIndex, std::string const & name );
   void deviceDel( std::string const & netNs, U32 ifIndex );
   void advance( Gantry::Time duration );

   // The device that the interface is on in the namespace of its VRF; null if it is on no device.
   Device const * deviceOf( Intf const & intf ) const;
   // Distinguishes an active history from an idle one.
   U32 delaysStarted() const { return delaysStarted_; }

   std::vector< Intf > intfs;
   std::vector< VrfPicture > vrfs;
   std::map< std::string, std::vector< Device > > devices; // by namespace, in the order of naming
   std::set< std::string > agents;                         // those that exist

 private:
   bool on() const { return sm_ && store_.configDir->globalConfig(); }
   // The namespace of the VRF while that is up.
   std::optional< std::string > netNsOf( std::string const & vrf ) const;
   bool ready( Intf const & intf ) const;
   bool promised( Intf const & intf ) const; // not in a broken VRF
   // Removes the layer-3 status of interfaces that have just lost their last message, then adds
   // it again: nothing may stay bound to the old record.
   void republish( std::vector< Intf * > const & lost );
   void expectFrames( Intf const & intf );

   // The invariants after a write.
   void settle();
   void checkIntf( Intf const & intf );
   void checkCounts();
   void checkMounts();

   SteppedClock clock_;
   RecordingRawTxPams pams_;
   FaultRecorder faults_;
   AgentStore store_;
   Quill::Ptr< RunnabilitySm > sm_;
   U32 nextIfIndex_ = 1;
   U32 delaysStarted_ = 0;
};

} // namespace Valen::Test
