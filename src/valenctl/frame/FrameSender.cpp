#include "valenctl/frame/FrameSender.h"

namespace Valenctl {

FrameSender::FrameSender( SenderOptions const & options ) : options_( options ) {
   if ( !options.device.empty() ) {
      known_ = deviceAddresses( options.device, options.netNs );
   }
   known_.mac = options.given.mac ? options.given.mac : known_.mac;
   known_.ipv4 = options.given.ipv4 ? options.given.ipv4 : known_.ipv4;
   known_.linkLocal = options.given.linkLocal ? options.given.linkLocal : known_.linkLocal;
}

Goodbye::Mac FrameSender::mac() const {
   return needed( known_.mac, "--mac", "MAC address" );
}

Goodbye::Ipv4Prefix FrameSender::ipv4() const {
   return needed( known_.ipv4, "--ip", "IPv4 address" );
}

Goodbye::Ipv6 FrameSender::linkLocal() const {
   return needed( known_.linkLocal, "--ip", "link-local IPv6 address" );
}

template < class Address >
Address const & FrameSender::needed( std::optional< Address > const & address, char const * option,
                                     char const * what ) const {
   if ( address ) {
      return *address;
   }
   if ( options_.device.empty() ) {
      throw UsageError( std::string( "the frame needs the sender's " ) + what + ": give " + option +
                        ", or --device to take it from" );
   }
   throw std::runtime_error( "device " + options_.device + " has no " + what );
}

} // namespace Valenctl
