#include "egress/Copies.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>

namespace Egress {

namespace {

constexpr std::size_t addresses = 12; // bytes before the tag

// The tag as it is on the wire.
std::string tagBytes( egress_copy const & copy ) {
   std::string bytes( sizeof copy.tag_type, '\0' );
   std::memcpy( bytes.data(), &copy.tag_type, bytes.size() );
   bytes.push_back( static_cast< char >( copy.tag >> 8 ) );
   bytes.push_back( static_cast< char >( copy.tag ) );
   return bytes;
}

} // namespace

// One call of read().
struct Copies::Reading {
   std::size_t left;
   std::function< void( Copy const & ) > const & take;
   std::exception_ptr thrown; // not through the functions of libbpf
};

void Copies::Free::operator()( ring_buffer * ring ) const noexcept {
   ::ring_buffer__free( ring );
}

Copies::Copies( CopyMaps maps )
    : maps_( std::move( maps ) ),
      ring_( ::ring_buffer__new( maps_.ring.get(), copied, this, nullptr ) ) {
   if ( !ring_ ) {
      Valen::Linux::throwErrno( "cannot map the ring of copied frames", errno );
   }
}

Copies::~Copies() = default;

void Copies::deviceIs( U32 filter, U32 ifIndex ) {
   egress_device const device{ filter, ifIndex };
   egress_limits const limits{};
   if ( ::bpf_map_update_elem( maps_.devices.get(), &device, &limits, BPF_NOEXIST ) != 0 &&
        errno != EEXIST ) {
      Valen::Linux::throwErrno( "cannot copy the frames of the device with the index " +
                                   std::to_string( ifIndex ),
                                errno );
   }
}

void Copies::deviceDel( U32 filter, U32 ifIndex ) noexcept {
   egress_device const device{ filter, ifIndex };
   ::bpf_map_delete_elem( maps_.devices.get(), &device );
}

int Copies::descriptor() const noexcept {
   return ::ring_buffer__epoll_fd( ring_.get() );
}

std::size_t Copies::read( std::size_t budget, std::function< void( Copy const & ) > const & take ) {
   if ( budget == 0 ) {
      return 0;
   }
   Reading reading{ budget, take, nullptr };
   reading_ = &reading;
   ::ring_buffer__consume( ring_.get() );
   reading_ = nullptr;
   if ( reading.thrown ) {
      std::rethrow_exception( reading.thrown );
   }
   return budget - reading.left;
}

// A negative result ends the reading after this frame.
int Copies::copied( void * copies, void * data, std::size_t size ) noexcept {
   auto & self = *static_cast< Copies * >( copies );
   auto & reading = *self.reading_;
   auto const & copy = *static_cast< egress_copy const * >( data );
   --reading.left;
   try {
      std::string_view frame( reinterpret_cast< char const * >( copy.bytes ),
                              size - offsetof( egress_copy, bytes ) );
      if ( copy.tag_type != 0 ) {
         self.tagged_ = frame;
         frame = self.tagged_.insert( addresses, tagBytes( copy ) );
      }
      reading.take( { copy.speaker, copy.muted != 0, frame } );
   } catch ( ... ) {
      reading.thrown = std::current_exception();
      return -ECANCELED;
   }
   return reading.left == 0 ? -EAGAIN : 0;
}

Lost Copies::lost() const noexcept {
   U32 const only = 0;
   egress_lost lost{};
   ::bpf_map_lookup_elem( maps_.losses.get(), &only, &lost );
   return { lost.full, lost.too_long, lost.limited };
}

} // namespace Egress
