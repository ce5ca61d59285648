// What the feeder needs from the kernel: whether the namespaces of VRFs can be opened.
#pragma once

#include <string>

namespace Valend {

// The result of opening a namespace.
struct NamespaceView {
   std::string identity; // unique among the namespaces that exist; empty when it cannot be opened
   std::string error;    // why it cannot be used: opened, or its links changed; empty when it can
   bool missing = false; // it cannot be opened because it does not exist

   bool operator==( NamespaceView const & ) const = default;
};

class Namespaces {
 public:
   virtual ~Namespaces() = default;
   // Opens, tries and closes the namespace of that name; "default" is that of the process.
   virtual NamespaceView look( std::string const & name ) const = 0;
};

} // namespace Valend
