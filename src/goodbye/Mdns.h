// Multicast DNS, RFC 6762.
#pragma once

#include "goodbye/Layers.h"

#include <vector>

namespace Goodbye {

// A pointer record: a service and one that offers it.
struct MdnsPointer {
   std::string name;   // "_http._tcp.local"
   std::string target; // "web._http._tcp.local"
};

struct MdnsGoodbye {
   std::string host; // "router.local", whose addresses follow
   std::vector< Ipv4 > addresses;
   std::vector< Ipv6 > addresses6;
   std::vector< MdnsPointer > pointers;
};

// A name of labels of 1 to 63 bytes, 255 in all. Throws BadText.
std::string parseMdnsName( std::string const & text );
// "NAME=TARGET". Throws BadText.
MdnsPointer parseMdnsPointer( std::string const & text );

// Responses with records whose time to live is 0.
Frame mdnsGoodbye( Mac const & source, Ipv4 const & address, MdnsGoodbye const & goodbye );
Frame mdnsGoodbye( Mac const & source, Ipv6 const & linkLocal, MdnsGoodbye const & goodbye );

} // namespace Goodbye
