// File descriptors for the last resort: a few are kept open for nothing else than to be given up when
// the process has no other left and must do a piece of its own work, such as setting a link down.
//
// They are for descriptors that are closed again after a few system calls: a namespace that is entered,
// the way back, a socket for a request. Sockets that stay open do not come from the reserve: they would
// use it up.
#pragma once

#include "linux/Fd.h"

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <vector>

namespace Valen::Linux {

// May be used by several threads.
class DescriptorReserve {
 public:
   // Enough for two pieces of work at the same time: a namespace, the way back, a socket.
   static constexpr std::size_t usualSize = 8;
   // Descriptors besides the reserve that must be left before one is given away for something that the
   // process can do without: a client's connection, an extra packet socket.
   static constexpr std::size_t keptForWork = 16;

   DescriptorReserve() = default;
   DescriptorReserve( DescriptorReserve const & ) = delete;
   DescriptorReserve & operator=( DescriptorReserve const & ) = delete;

   // The one of the process. It has no descriptors until a size is set.
   static DescriptorReserve & ofProcess() noexcept;

   // How many descriptors it keeps from now on, as far as they can be opened.
   void sizeIs( std::size_t size ) noexcept;
   // How many it has.
   std::size_t held() const noexcept;

   // Returns an owner of what `open` returns. If `open` fails because no descriptor is left, gives one up
   // and tries again. The reserve is filled again at its next use. Empty, with errno, if `open` fails.
   template < class Open > Fd open( Open const & open ) noexcept {
      fill();
      Fd fd( open() );
      while ( !fd && ( errno == EMFILE || errno == ENFILE ) && giveUpOne() ) {
         fd = Fd( open() );
      }
      return fd;
   }

   // Whether the reserve is full and keptForWork more descriptors can be opened.
   bool hasRoom() noexcept;

 private:
   void fill() noexcept;
   void fillLocked() noexcept;
   bool giveUpOne() noexcept;

   mutable std::mutex mutex_;
   std::size_t size_ = 0;
   std::vector< Fd > held_;
};

} // namespace Valen::Linux
