// The methods that shut interfaces down and enable them: one, some, those of a VRF, or all.
#pragma once

#include "valend/api/Method.h"
#include "valend/api/Parts.h"

#include <optional>
#include <string>
#include <vector>

namespace Valend {

class LinkMethods final : public MethodGroup {
 public:
   explicit LinkMethods( Parts const & parts )
       : store_( parts.store ), feeder_( parts.feeder ), controller_( parts.controller ),
         work_( parts.work ) {}

   std::vector< Method > methods() override;

 private:
   class Many;

   using Names = std::optional< std::vector< std::string > >;
   using Text = std::optional< std::string >;
   using Flag = std::optional< bool >;

   void list( Call const & call, Names const & names, Text const & vrf, Text const & device,
              Flag ready );
   void shutdown( Call const & call, std::string const & interface );
   void shutdownMany( Call const & call, Names const & names, Text const & vrf, Text const & device,
                      Flag ready );
   void enable( Call const & call, std::string const & interface );
   void enableMany( Call const & call, Names const & names, Text const & vrf, Text const & device,
                    Flag ready );

   // Which interfaces a call is about: those named, or all; of these the ones in the VRF, on the
   // device, ready.
   struct Choice {
      Names names;
      Text vrf;
      Text device;
      bool ready;
   };
   // The interfaces' names, each once, in order. Throws Refusal: "NoSuchInterface", "NoSuchVrf".
   std::vector< std::string > chosen( Choice const & choice ) const;
   bool isChosen( Settings::InterfaceConfig const & interface, Choice const & choice ) const;

   // How an observer of a shutdown came to it.
   enum class Came : U8 {
      first,  // it asked for the shutdown
      joined, // the shutdown was in progress
   };
   Came cameTo( std::string const & interface ) const;
   Json stepJson( ShutdownStep step, ShutdownRecord const & record, Came came ) const;

   Store const & store_;
   Feeder const & feeder_;
   LinkController & controller_;
   Gantry::WorkQueue & work_;
};

} // namespace Valend
