// The packet sockets of one endpoint, all in the same namespace: a resident one, and extra ones while
// devices have a backlog.
//
// The kernel counts the bytes that a socket has outstanding, not those of a device, and rejects further
// frames when there are too many. On a socket that they share, a device whose queue is stuck would hold
// up the others. So each burst gets a socket on which no other device has bytes outstanding. When there
// are too many extra sockets, or no descriptor is left, the burst shares the least loaded socket.
#pragma once

#include "linux/DescriptorReaper.h"
#include "linux/NetNs.h"

#include <vector>

namespace Valen::Linux {

// What the sockets of several endpoints share.
struct PacketSocketPool {
   // Extra sockets of all endpoints.
   static constexpr std::size_t maxExtra = 64;

   DescriptorReaper reaper;
   std::size_t extra = 0;
   U32 mark = 0;         // SO_MARK of the sockets, by which filters recognize their frames; 0: none
   U64 sharedBursts = 0; // that had to share a socket with a device that has bytes outstanding
};

class PacketSockets {
 public:
   // Bytes that may be queued in a socket. The kernel's default has room for only 96 large frames.
   static constexpr int sendBufferBytes = 16 << 20;

   // `pool` must outlive it.
   explicit PacketSockets( PacketSocketPool & pool ) : pool_( pool ) {}
   ~PacketSockets() { close(); }
   PacketSockets( PacketSockets const & ) = delete;
   PacketSockets & operator=( PacketSockets const & ) = delete;

   // Opens the resident socket inside `netNs`. Throws Quill::ErrnoException, and opens nothing, if it
   // cannot. The text of an error says what failed and what to do.
   void open( NetNs const & netNs );
   void close() noexcept; // by the reaper
   bool isOpen() const noexcept { return !sockets_.empty(); }
   // The namespace of the sockets; valid while open.
   NetNsIdentity const & netNsIdentity() const noexcept { return netNs_.identity; }

   // Chooses the socket for the frames that are sent to the device from now on. Makes one system call if
   // the last burst was for another device, and a few more if that has bytes outstanding. Open sockets
   // only.
   void burstIs( U32 ifIndex );
   // The socket of the last burst; open sockets only.
   int fd() const noexcept { return sockets_[ current_ ].fd.get(); }

   // Bytes that the device's frames have outstanding; those of other devices are included only when they
   // share its socket. Counts the kernel's overhead as well.
   U64 outstandingBytes( U32 ifIndex ) const noexcept;

   std::size_t extra() const noexcept { return isOpen() ? sockets_.size() - 1 : 0; }
   // Closes the extra sockets that have nothing outstanding and were not used since the last call.
   void closeUnused() noexcept;

 private:
   struct Socket {
      Fd fd;
      std::vector< U32 > devices = {}; // that may have bytes outstanding on it
      bool used = true;                // since the last closeUnused()

      bool serves( U32 ifIndex ) const noexcept;
      bool servesOnly( U32 ifIndex ) const noexcept {
         return devices.size() == 1 && devices.front() == ifIndex;
      }
      U64 outstandingBytes() const noexcept;
   };

   std::size_t choose( U32 ifIndex );
   bool openExtra();
   Fd openBesideResident() const;

   PacketSocketPool & pool_;
   NetNs netNs_;                   // without a descriptor
   bool entered_ = false;          // whether it is another namespace than the process's own
   std::vector< Socket > sockets_; // the first is the resident one
   std::size_t current_ = 0;       // the socket of the last burst
};

} // namespace Valen::Linux
