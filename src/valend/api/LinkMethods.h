// The methods that shut interfaces down, enable them, and say goodbye: one, some, those of a VRF, or all.
#pragma once

#include "valend/api/Choice.h"
#include "valend/api/Method.h"
#include "valend/api/Parts.h"

#include <optional>
#include <string>
#include <vector>

namespace Valend {

class LinkMethods final : public MethodGroup {
 public:
   explicit LinkMethods( Parts const & parts )
       : store_( parts.store ), feeder_( parts.feeder ), port_( parts.port ),
         controller_( parts.controller ), configurator_( parts.configurator ), work_( parts.work ) {
   }

   std::vector< Method > methods() override;

 private:
   class Many;
   class Results;

   using Names = std::optional< std::vector< std::string > >;
   using Text = std::optional< std::string >;
   using Flag = std::optional< bool >;
   using Number = std::optional< U64 >;

   static constexpr std::size_t maxReasonBytes = Request::maxReasonBytes;

   void list( Call const & call, Names const & names, Text const & vrf, Text const & device,
              Flag ready );
   void shutdown( Call const & call, std::string const & interface, Text const & reason,
                  Number delayMs );
   void shutdownMany( Call const & call, Names const & names, Text const & vrf, Text const & device,
                      Flag ready, Flag all, Text const & reason, Number delayMs );
   void enable( Call const & call, std::string const & interface );
   void enableMany( Call const & call, Names const & names, Text const & vrf, Text const & device,
                    Flag ready, Flag all );
   void goodbye( Call const & call, Names const & names, Text const & vrf, Text const & device,
                 Flag ready, Flag all, Text const & reason );
   bool isDown( std::string const & interface ) const;
   void sayGoodbye( std::shared_ptr< Results > const & results, std::string const & name,
                    Request const & request );

   std::vector< std::string > chosen( Choice const & choice ) const;
   // The same, for a call that changes something.
   std::vector< std::string > required( Choice const & choice ) const;

   U64 maxDelayMs() const;
   // Who calls, and what for. Throws Refusal: "BadReason", "DelayTooLong".
   Request requestOf( Call const & call, Text const & reason, Number delayMs ) const;

   // How an observer of a shutdown came to it.
   enum class Came : U8 {
      first,  // it asked for the shutdown
      joined, // the shutdown was in progress
   };
   Came cameTo( std::string const & interface ) const;
   Json stepJson( ShutdownStep step, ShutdownRecord const & record, Came came ) const;

   Store const & store_;
   Feeder const & feeder_;
   LinkPort & port_;
   LinkController & controller_;
   Configurator const & configurator_;
   Gantry::WorkQueue & work_;
};

} // namespace Valend
