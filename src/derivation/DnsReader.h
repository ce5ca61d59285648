// Reads names and records of a DNS message (RFC 1035, 4.1).
#pragma once

#include "derivation/Reader.h"

#include <string>
#include <vector>

namespace Derivation {

struct DnsRecord {
   std::string name; // in lower case
   U16 type;
   U16 classAndFlush; // its high bit: receivers forget other records of this name and type
   std::size_t ttlAt;
   U32 ttl;
   Reader data;
};

class DnsReader {
 public:
   // `message` begins with its header, and `frame` is what the message is in.
   DnsReader( std::string_view frame, Reader const & message )
       : frame_( frame.substr( 0, message.at() + message.left() ) ), begin_( message.at() ),
         isInName_( frame_.size() ) {}

   // Reads a name, which may go on in one that was read before, and nowhere else: other fields may change.
   std::string name( Reader & at );
   DnsRecord record( Reader & at );

 private:
   std::string_view frame_; // up to the end of the message
   std::size_t begin_;
   std::vector< bool > isInName_; // by position: a label or a pointer begins there
};

} // namespace Derivation
