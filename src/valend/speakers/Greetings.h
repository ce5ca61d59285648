// Sends a speaker's last frames again, for the neighbors that its goodbye has made forget it.
#pragma once

#include "linux/PacketEndpoint.h"
#include "valend/speakers/SpeakerTable.h"

#include <map>
#include <string>

namespace Valend {

class Greetings {
 public:
   Greetings( Valen::Linux::NetNsDirectories const & directories,
              Quill::Ptr< Gantry::TaskScheduler > const & scheduler );

   // Returns whether the kernel accepted all frames of the speaker.
   bool send( LinkPlace const & place, U32 ifIndex, SpeakerTable::Speaker const & speaker );

 private:
   Corvid::RawTxPam & endpoint( std::string const & netNs );

   // Apart from the library's endpoints, whose counters are of goodbyes.
   Valen::Linux::PacketEndpointProvider provider_;
   std::map< std::string, Quill::Ptr< Corvid::RawTxPam > > endpoints_; // by namespace
};

} // namespace Valend
