// Sets devices up and down.
#pragma once

#include "linux/NetNs.h"

#include <chrono>

namespace Valen::Linux {

class LinkControl {
 public:
   // `patience`: how long the kernel's answer is waited for.
   explicit LinkControl( NetNsFolders folders = NetNsFolders(),
                         std::chrono::milliseconds patience = std::chrono::seconds( 1 ) );

   // Sets the device of that index up or down in namespace `netNs`, once it is known that the index
   // bears that name, and waits for the kernel to have done it. A device that is there already
   // stays so. Throws Quill::ErrnoException: ENODEV when the index is not there or bears another
   // name, ETIMEDOUT when the kernel does not answer, what NetNsFolders::open throws, and what the
   // kernel answers (EPERM without CAP_NET_ADMIN).
   void upIs( Corvid::NamespaceName const & netNs, U32 ifIndex, Quill::Name const & deviceName,
              bool up );

   // Whether that device is set up. Throws as upIs does.
   bool up( Corvid::NamespaceName const & netNs, U32 ifIndex, Quill::Name const & deviceName );

 private:
   NetNsFolders const folders_;
   std::chrono::milliseconds const patience_;
};

} // namespace Valen::Linux
