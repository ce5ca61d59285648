// The limit of the process's open file descriptors (RLIMIT_NOFILE).
//
// Without a descriptor a VRF does not get ready, and without the reserve a link would not go down. So the
// limit is raised as far as the process may, and the condition "descriptors" is raised while it is lower
// than what the configuration may need.
#pragma once

#include "valend/base/Conditions.h"

#include <cstddef>

namespace Valend {

class DescriptorLimit {
 public:
   // Raises the soft limit to the hard limit, and fills the reserve of the process
   // (linux/DescriptorReserve.h). The limit is not inherited: valend starts no other program.
   explicit DescriptorLimit( Conditions & conditions );
   // Closes the reserve.
   ~DescriptorLimit();
   DescriptorLimit( DescriptorLimit const & ) = delete;
   DescriptorLimit & operator=( DescriptorLimit const & ) = delete;

   // The most that are open at a time, all clients included.
   static std::size_t needed( std::size_t vrfs, std::size_t interfaces,
                              std::size_t clients ) noexcept;
   // Compares the limit with what these need.
   void check( std::size_t vrfs, std::size_t interfaces, std::size_t clients );

 private:
   Condition condition_;
};

} // namespace Valend
