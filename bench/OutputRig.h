// One interface that is ready to send: the real reactor with a real packet socket, on device "e0".
#pragma once

#include "Devices.h"
#include "intf/IntfIoSm.h"
#include "linux/PacketEndpoint.h"

namespace Valen::Bench {

class OutputRig {
 public:
   // An interface with `texts` queued frames of `bytes` bytes each.
   OutputRig( U32 texts, std::size_t bytes );
   ~OutputRig();

   // Sends all frames once. Throws if one is rejected.
   void output();
   // Sends the same bytes through sendto alone.
   void outputBare();

 private:
   U32 const texts_;
   U32 const ifIndex_;
   Linux::PacketEndpointProvider provider_;
   Quill::Ptr< Config::Agent::Message > const message_;
   Quill::Ptr< IntfIoSm > intfIoSm_;
   BareSender bare_;
};

} // namespace Valen::Bench
