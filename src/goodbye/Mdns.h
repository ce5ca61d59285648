// Multicast DNS, RFC 6762.
#pragma once

#include "goodbye/Layers.h"

#include <vector>

namespace Goodbye {

// A pointer record: a service and an instance of it.
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

// Checks a name: labels of 1 to 63 bytes, at most 255 bytes in total. Throws BadText.
std::string parseMdnsName( std::string const & text );
// Parses "NAME=TARGET". Throws BadText.
MdnsPointer parseMdnsPointer( std::string const & text );

// Responses whose records have a time to live of 0.
Frame mdnsGoodbye( Mac const & source, Ipv4 const & address, MdnsGoodbye const & goodbye );
Frame mdnsGoodbye( Mac const & source, Ipv6 const & linkLocal, MdnsGoodbye const & goodbye );

} // namespace Goodbye
