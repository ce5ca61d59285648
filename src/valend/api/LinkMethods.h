// The calls that shut interfaces down and enable them: one, some, those of a VRF, or all.
#pragma once

#include "valend/configuration/Feeder.h"
#include "valend/shutdown/LinkController.h"
#include "varlink/Call.h"

#include <optional>
#include <string>
#include <vector>

namespace Valend {

using Varlink::Json;

class LinkMethods {
 public:
   using Call = std::shared_ptr< Varlink::Call > const &;
   // Which interfaces a call is about: those named, or all; of these the ones in the VRF, on the
   // device, ready.
   struct Wanted {
      std::optional< std::vector< std::string > > names;
      std::optional< std::string > vrf;
      std::optional< std::string > device;
      bool ready = false;
   };

   // All must outlive this; `work` too.
   LinkMethods( Store const & store, Feeder const & feeder, LinkController & controller,
                Gantry::WorkQueue & work )
       : store_( store ), feeder_( feeder ), controller_( controller ), work_( work ) {}

   // The interfaces' names, each once, in order. Throws Refusal: "NoSuchInterface", "NoSuchVrf".
   std::vector< std::string > names( Wanted const & wanted ) const;

   // Each throws Refusal, before anything is done.
   void shutdown( Call call, std::string const & interface );
   void shutdownMany( Call call, Wanted const & wanted );
   void enable( Call call, std::string const & interface );
   void enableMany( Call call, Wanted const & wanted );

 private:
   class Many;

   // `joined`: the shutdown was under way when it was asked for.
   Json stepJson( ShutdownStep step, ShutdownRecord const & record, bool joined ) const;

   bool isWanted( Settings::InterfaceConfig const & interface, Wanted const & wanted ) const;

   Store const & store_;
   Feeder const & feeder_;
   LinkController & controller_;
   Gantry::WorkQueue & work_;
};

} // namespace Valend
