// Whether the namespaces of VRFs can be opened: what the feeder needs to know of the kernel.
#pragma once

#include <string>

namespace Valend {

// What a look at a namespace found.
struct NamespaceView {
   std::string identity; // tells it from all others that live; empty when it cannot be opened
   std::string trouble;  // why it cannot be opened; empty when it can
   bool missing = false; // the trouble is that there is none of that name

   bool operator==( NamespaceView const & ) const = default;
};

class Namespaces {
 public:
   virtual ~Namespaces() = default;
   // Opens the namespace of that name for a moment; "default" is the process's own.
   virtual NamespaceView look( std::string const & name ) const = 0;
};

} // namespace Valend
