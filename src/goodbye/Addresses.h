// Addresses, and parsing them from text.
#pragma once

#include "platform/quill/Int.h"

#include <stdexcept>
#include <string>
#include <tins/hw_address.h>
#include <tins/ip_address.h>
#include <tins/ipv6_address.h>

namespace Goodbye {

using Mac = Tins::HWAddress< 6 >;
using Ipv4 = Tins::IPv4Address;
using Ipv6 = Tins::IPv6Address;

// An address or a network, with its prefix length in bits.
struct Ipv4Prefix {
   Ipv4 address;
   U8 length = 32;

   // The mask: 255.255.255.0 for a length of 24.
   Ipv4 mask() const;
};

// A text is invalid; what() has what is wrong with it and what was expected.
class BadText : public std::invalid_argument {
 public:
   using invalid_argument::invalid_argument;
};

// Each throws BadText if the text is not such an address.
Mac parseMac( std::string const & text );        // six bytes: 02:00:00:00:00:01
Ipv4 parseIpv4( std::string const & text );      // 192.0.2.1
Ipv4 parseIpv4Group( std::string const & text ); // a multicast address: 233.252.0.1
Ipv6 parseIpv6( std::string const & text );      // 2001:db8::1
// 192.0.2.0/24; the default length is 32.
Ipv4Prefix parseIpv4Prefix( std::string const & text );

bool isLinkLocal( Ipv6 const & address ); // in fe80::/10

} // namespace Goodbye
