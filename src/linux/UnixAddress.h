// The address of a Unix socket, as the kernel takes it.
#pragma once

#include <optional>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace Valen::Linux {

class UnixAddress {
 public:
   // The address of the socket at `path`; nothing when the path does not fit in one (107 bytes).
   static std::optional< UnixAddress > at( std::string_view path ) noexcept;
   // The same for an abstract name, which is no file.
   static std::optional< UnixAddress > abstract( std::string_view name ) noexcept;

   // For bind, connect and sendto. The pointer is into this object.
   sockaddr const * get() const noexcept {
      return reinterpret_cast< sockaddr const * >( &address_ );
   }
   socklen_t size() const noexcept { return size_; }

 private:
   UnixAddress() noexcept = default;
   static std::optional< UnixAddress > of( std::string_view name, std::size_t offset ) noexcept;

   sockaddr_un address_{};
   socklen_t size_ = 0;
};

} // namespace Valen::Linux
