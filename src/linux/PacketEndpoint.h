// Raw transmit endpoints on packet sockets.
//
// An endpoint has AF_PACKET sockets with protocol 0, which receive nothing: see PacketSockets.h.
// Enabling the endpoint opens the resident one inside its namespace. Sending takes one system call per
// packet and allocates nothing. Closing a socket blocks in the kernel, so the reaper does it.
#pragma once

#include "linux/PacketSockets.h"
#include "platform/corvid/RawTxPam.h"
#include "platform/gantry/Timer.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Valen::Linux {

class PacketEndpoint;

// Called with the reason, inside the call that enables it, when an endpoint could not be opened and the error
// is one that the library does not report: ENOENT and EINVAL mean to it that the namespace does not exist.
using OpenFailed =
   std::function< void( Corvid::NamespaceName const & netNs, std::string const & why ) >;

// Shared by the endpoints of one provider.
struct PacketEndpoints {
   NetNsDirectories directories;
   PacketSocketPool pool;
   std::vector< PacketEndpoint * > live;       // all endpoints, enabled or not
   std::optional< Gantry::Timer > closeUnused; // closes extra sockets
   OpenFailed openFailed;                      // may be empty
};

class PacketEndpoint final : public Corvid::RawTxPam {
   QUILL_TRACKED( Valen::Linux::PacketEndpoint )
 public:
   // Counts since the endpoint was created.
   struct Counters {
      U64 sent = 0;        // packets that the kernel accepted
      U64 failed = 0;      // packets that were rejected, wrongDevice included
      U64 wrongDevice = 0; // packets not sent because the index belongs to another device
      U64 wrongBursts = 0; // bursts rejected for that reason
   };

   // The last error in sending on a device.
   struct SendError {
      int number = 0;
      U64 packets = 0;  // rejected in the burst
      std::string text; // "Network is down", "index 7 is now eth9, not et1"
   };

   // The result of one burst. Its packets are numbered from 0 in the order of sending.
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

   // No effect if the endpoint is in that state already. The text of an error says what failed and what
   // to do.
   void enabledIs( bool enabled ) override;
   bool enabled() const noexcept override { return sockets_.isOpen(); }

   // Makes one system call, and those of PacketSockets::burstIs. Clears the error of the device's
   // previous burst.
   void burstIs( U32 ifIndex, Quill::String const & deviceName ) override;

   // Also fails without a system call: EINVAL for index 0, ENOTCONN if not enabled, ENODEV if the burst
   // is for another index or its device was rejected. The kernel rejects a frame that is shorter than a
   // link-layer header (EINVAL) or longer than the device allows (EMSGSIZE).
   [[nodiscard]] bool send( Corvid::Pkt const & pkt, U32 ifIndex ) override;
   int lastErrno() const noexcept override { return lastErrno_; }

   Counters const & counters() const noexcept { return counters_; }
   // The last burst. Its index is 0 if there was none since the endpoint was opened.
   Burst const & burst() const noexcept { return burst_; }
   // The error of the last burst on the device; null if there was none.
   SendError const * sendError( U32 ifIndex ) const noexcept;
   // Bytes of the device's frames that have not left the machine yet: frames that the kernel accepted
   // may still wait for the device. See PacketSockets. 0 if not enabled.
   U64 outstandingBytes( U32 ifIndex ) const noexcept {
      return sockets_.outstandingBytes( ifIndex );
   }
   // The sockets, for their numbers.
   PacketSockets const & sockets() const noexcept { return sockets_; }
   // Closes extra sockets that are not needed any more; the provider does it if it has a scheduler.
   void closeUnused() noexcept { sockets_.closeUnused(); }
   // The namespace of the sockets; valid while enabled.
   NetNsIdentity const & netNsIdentity() const noexcept { return sockets_.netNsIdentity(); }

 private:
   void open();
   void close() noexcept;
   bool refuse( U32 ifIndex, int number );
   SendError & sendErrorOf( U32 ifIndex );
   void burstRefusedIs( U32 ifIndex, int number, std::string text );

   std::shared_ptr< PacketEndpoints > const endpoints_;
   PacketSockets sockets_;
   Burst burst_;
   int burstRefused_ = 0; // the errno for all packets of the burst; 0: they may be sent
   int lastErrno_ = 0;
   Counters counters_;
   std::map< U32, SendError > sendErrors_; // by index; of limited size
};

// The process's provider (Corvid::rawTxPamProviderIs). The endpoints may outlive it.
class PacketEndpointProvider final : public Corvid::RawTxPamProvider {
 public:
   // How long an extra socket is kept after its last use, at least; at most twice as long.
   static constexpr std::chrono::seconds closeUnusedAfter{ 10 };

   //   scheduler   for closing extra sockets; without it, they are closed with their endpoint
   explicit PacketEndpointProvider( NetNsDirectories directories = NetNsDirectories(),
                                    Quill::Ptr< Gantry::TaskScheduler > scheduler = nullptr );

   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String name ) override;

   // The endpoints of a namespace, enabled or not, oldest first. The pointers are valid until an
   // endpoint is created or destroyed.
   std::vector< PacketEndpoint * > endpoints( Corvid::NamespaceName const & netNs ) const;
   // All endpoints.
   std::vector< PacketEndpoint * > const & endpoints() const noexcept { return shared_->live; }

   DescriptorReaper & reaper() noexcept { return shared_->pool.reaper; }
   // SO_MARK of the sockets that are opened from now on.
   void markIs( U32 mark ) { shared_->pool.mark = mark; }
   void openFailedIs( OpenFailed openFailed ) { shared_->openFailed = std::move( openFailed ); }
   // Bursts of all endpoints, those that are gone included, that had to share a socket; see PacketSockets.
   U64 sharedBursts() const noexcept;

 private:
   static void closeUnused( PacketEndpoints & endpoints );

   std::shared_ptr< PacketEndpoints > const shared_;
};

} // namespace Valen::Linux
