// The frames that speakers send, as the filters in the kernel (Egress.bpf.c) copy them to a ring. valend's own
// frames and those that the machine forwards are not copied.
//
// Its functions never wait: each is at most one system call on a map.
#pragma once

#include "egress/Egress.h"
#include "egress/Filters.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct ring_buffer;

namespace Egress {

// A frame that a speaker sent.
struct Copy {
   egress_speaker speaker;
   bool muted; // it was dropped
   // From the destination address on, with its VLAN tag. It is not padded, and its UDP checksum may be left to the
   // device.
   std::string_view frame;
};

// Frames that should have been copied, of all devices since the filters were loaded.
struct Lost {
   U64 full = 0;    // they were not read in time
   U64 tooLong = 0; // longer than EGRESS_LONGEST
   U64 limited = 0; // more than EGRESS_COPIES_A_SECOND of a protocol and device
};

class Copies {
 public:
   // `maps` is from Filters::copies. Throws Quill::ErrnoException.
   explicit Copies( CopyMaps maps );
   ~Copies();
   Copies( Copies const & ) = delete;
   Copies & operator=( Copies const & ) = delete;

   // The frames that leave this device through its filter are copied from now on. No effect if they are. Throws
   // Quill::ErrnoException: E2BIG if EGRESS_DEVICES are.
   //   filter, ifIndex   as for Filters::attach
   void deviceIs( U32 filter, U32 ifIndex );
   // They are no longer; some may still be read. No effect if they are not.
   void deviceDel( U32 filter, U32 ifIndex ) noexcept;

   // Readable (EPOLLIN) while there are frames to read.
   int descriptor() const noexcept;
   // Passes at most `budget` frames to `take`, in the order in which they were sent, and returns how many. An
   // exception of `take` ends it, and is passed on; that frame has been read.
   std::size_t read( std::size_t budget, std::function< void( Copy const & ) > const & take );

   Lost lost() const noexcept;

 private:
   struct Free {
      void operator()( ring_buffer * ring ) const noexcept;
   };
   struct Reading;

   static int copied( void * copies, void * data, std::size_t size ) noexcept;

   CopyMaps const maps_;
   std::unique_ptr< ring_buffer, Free > ring_;
   Reading * reading_ = nullptr; // during read()
   std::string tagged_;          // a frame whose tag was beside its bytes
};

} // namespace Egress
