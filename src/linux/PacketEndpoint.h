// Raw transmit endpoints on the kernel's packet sockets.
//
// An endpoint has one AF_PACKET socket of protocol 0, which never receives, opened inside its
// namespace by the enabling call. It sends with one system call per packet and allocates nothing
// on the way. Closing waits in the kernel, so the socket goes to the reaper.
#pragma once

#include "linux/DescriptorReaper.h"
#include "linux/NetNs.h"
#include "platform/corvid/RawTxPam.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Valen::Linux {

class PacketEndpoint;

// What the endpoints of one provider share.
struct PacketEndpoints {
   NetNsFolders folders;
   DescriptorReaper reaper;
   std::vector< PacketEndpoint * > live; // every endpoint, enabled or not
};

class PacketEndpoint final : public Corvid::RawTxPam {
   QUILL_TRACKED( Valen::Linux::PacketEndpoint )
 public:
   // Bytes that may wait in the socket; the kernel's own choice holds 96 large frames.
   static constexpr int sendBufferBytes = 16 << 20;

   // Counts since the endpoint was made.
   struct Counters {
      U64 sent = 0;        // packets that the kernel took
      U64 failed = 0;      // packets that it refused, wrongDevice included
      U64 wrongDevice = 0; // packets not sent because the index had passed to another device
      U64 wrongBursts = 0; // bursts refused for that
   };

   // The last trouble with sending to a device.
   struct SendError {
      int number = 0;
      U64 packets = 0;  // refused in the burst
      std::string text; // "Network is down", "index 7 is now eth9, not et1"
   };

   // What became of the packets of one burst, which are numbered from 0 in the order of sending.
   struct Burst {
      struct Refused {
         U32 packet = 0;
         int number = 0; // the errno
      };
      U32 ifIndex = 0;
      U32 packets = 0; // tried
      std::vector< Refused > refused;
   };

   PacketEndpoint( Quill::String name, std::shared_ptr< PacketEndpoints > endpoints );
   ~PacketEndpoint() override; // closes

   // The errors say what is wrong and what to do about it. Enabling an endpoint that is enabled, or
   // closing one that is closed, does nothing.
   void enabledIs( bool enabled ) override;
   bool enabled() const noexcept override { return static_cast< bool >( socket_ ); }

   // One system call. Forgets the trouble of the device's burst before.
   void burstIs( U32 ifIndex, Quill::String const & deviceName ) override;

   // Also fails, without a system call: EINVAL for index 0, ENOTCONN when not enabled, ENODEV when
   // the burst is for another index or its device was refused. A frame that is shorter than a
   // link-layer header (EINVAL) or longer than the device takes (EMSGSIZE) is refused by the kernel.
   [[nodiscard]] bool send( Corvid::Pkt const & pkt, U32 ifIndex ) override;
   int lastErrno() const noexcept override { return lastErrno_; }

   Counters const & counters() const noexcept { return counters_; }
   // The burst that was begun last. Its index is 0 when none was since the endpoint was opened.
   Burst const & burst() const noexcept { return burst_; }
   // The trouble of the last burst to the device; null when it had none.
   SendError const * sendError( U32 ifIndex ) const noexcept;
   // Bytes of frames that have not left the machine yet: a frame that was taken by the kernel may
   // still wait for the device. 0 when not enabled.
   U32 outstandingBytes() const noexcept;
   // The namespace that the socket is in; meaningful while enabled.
   NetNsIdentity const & netNsIdentity() const noexcept { return identity_; }

 private:
   void open();
   void close() noexcept;
   Fd openSocket() const;
   bool refuse( U32 ifIndex, int number );
   SendError & sendErrorOf( U32 ifIndex );
   void burstRefusedIs( U32 ifIndex, int number, std::string text );

   std::shared_ptr< PacketEndpoints > const endpoints_;
   Fd socket_;
   NetNsIdentity identity_;
   Burst burst_;
   int burstRefused_ = 0; // the errno of the burst's packets; 0: they may be sent
   int lastErrno_ = 0;
   Counters counters_;
   std::map< U32, SendError > sendErrors_; // by index; bounded
};

// The process's provider (Corvid::rawTxPamProviderIs). The endpoints may outlive it.
class PacketEndpointProvider final : public Corvid::RawTxPamProvider {
 public:
   explicit PacketEndpointProvider( NetNsFolders folders = NetNsFolders() );

   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String name ) override;

   // The live endpoints of a namespace, enabled or not, the oldest first. Valid until the next one
   // is made or goes.
   std::vector< PacketEndpoint * > endpoints( Corvid::NamespaceName const & netNs ) const;
   // All live endpoints.
   std::vector< PacketEndpoint * > const & endpoints() const noexcept { return shared_->live; }

   DescriptorReaper & reaper() noexcept { return shared_->reaper; }

 private:
   std::shared_ptr< PacketEndpoints > const shared_;
};

} // namespace Valen::Linux
