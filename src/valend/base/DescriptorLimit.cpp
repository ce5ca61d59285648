#include "valend/base/DescriptorLimit.h"

#include "linux/DescriptorReserve.h"
#include "linux/PacketSockets.h"
#include "settings/Counted.h"

#include <sys/resource.h>

namespace Valend {

using Valen::Linux::DescriptorReserve;

namespace {

// The loop, the listening socket, the files of the state directory, traces.
constexpr std::size_t ofProcess = 32;
// Its packet socket, the notifications of its devices, the requests for its links.
constexpr std::size_t ofVrf = 3;
// The link of its device's filter.
constexpr std::size_t ofInterface = 1;

rlimit currentLimit() noexcept {
   rlimit limit{};
   ::getrlimit( RLIMIT_NOFILE, &limit );
   return limit;
}

} // namespace

DescriptorLimit::DescriptorLimit( Conditions & conditions )
    : condition_( conditions, "descriptors" ) {
   auto limit = currentLimit();
   limit.rlim_cur = limit.rlim_max;
   ::setrlimit( RLIMIT_NOFILE, &limit );
   DescriptorReserve::ofProcess().sizeIs( DescriptorReserve::usualSize );
}

DescriptorLimit::~DescriptorLimit() {
   DescriptorReserve::ofProcess().sizeIs( 0 );
}

std::size_t DescriptorLimit::needed( std::size_t vrfs, std::size_t interfaces,
                                     std::size_t clients ) noexcept {
   return ofProcess + vrfs * ofVrf + interfaces * ofInterface + clients +
          Valen::Linux::PacketSocketPool::maxExtra + DescriptorReserve::usualSize +
          DescriptorReserve::keptForWork;
}

void DescriptorLimit::check( std::size_t vrfs, std::size_t interfaces, std::size_t clients ) {
   auto const limit = currentLimit().rlim_cur;
   auto const count = needed( vrfs, interfaces, clients );
   condition_.update(
      limit >= count ? ""
                     : "up to " + std::to_string( count ) + " file descriptors are needed (" +
                          Settings::counted( vrfs, "VRF" ) + ", " +
                          Settings::counted( interfaces, "interface" ) + ", " +
                          Settings::counted( clients, "client" ) + "), and the limit is " +
                          std::to_string( limit ) + "; raise it (LimitNOFILE= of the service)" );
}

} // namespace Valend
