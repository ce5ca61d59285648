// Corvid::Pkt: one raw packet; and the manager that makes packets.
#pragma once

#include "platform/quill/Allocation.h"
#include "platform/quill/Ptr.h"
#include "platform/quill/String.h"

#include <vector>

namespace Corvid {

// The complete bytes of one frame, from the link-layer header on. Nothing is added or parsed.
class Pkt final : public Quill::PtrInterface {
   QUILL_TRACKED( Corvid::Pkt )
 public:
   class Manager;

   // Fills the packet. Strings are immutable, so the packet shares the bytes instead of copying.
   //   flag   reserved to packet services that tag traffic; ignored here
   void stringValueIs( Quill::String bytes, bool flag );
   Quill::String const & stringValue() const noexcept { return bytes_; }

   char const * data() const noexcept { return bytes_.view().data(); }
   U32 length() const noexcept { return bytes_.length(); }

 private:
   Quill::String bytes_;
};

// Makes packets from a pool: a packet without handles is reused, so that sending allocates nothing
// once the pool has grown.
class Pkt::Manager final {
 public:
   // An empty packet.
   Quill::Ptr< Pkt > newPkt();
   // Frees the packets that have no handles.
   void trim() noexcept;

 private:
   std::vector< Quill::Ptr< Pkt > > pool_;
   std::size_t next_ = 0; // where to look for a free packet first
};

// The process's packet manager.
Pkt::Manager & globalPktManager() noexcept;

} // namespace Corvid
