// The links that are being set up because an operator has enabled them, while no shutdown is running.
#pragma once

#include "platform/gantry/TaskScheduler.h"
#include "valend/shutdown/Enabled.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Valend {

class Enablings {
 public:
   using Answered = std::function< void( std::string const & interface, LinkPlace const & place,
                                         LinkAnswer const & answer ) >;

   // `answered` is called from the loop with each answer of the kernel, before the observers. `port` must outlive this.
   Enablings( LinkPort & port, Quill::Ptr< Gantry::TaskScheduler > scheduler, Answered answered );

   // Requests that the link be set up. `observer` is called from the loop.
   void begin( std::string const & interface, LinkPlace const & place, EnableObserver observer );
   // Calls `observer` with the result of the one that is running.
   void join( std::string const & interface, EnableObserver observer );
   bool running( std::string const & interface ) const { return running_.contains( interface ); }

   // What becomes of each when valend stops, a line each.
   std::vector< std::string > pendingLines() const;

 private:
   struct Enabling {
      std::unique_ptr< LinkRequest > request;
      std::vector< EnableObserver > observers;
   };

   void end( std::string const & interface, LinkPlace const & place, LinkAnswer const & answer );

   LinkPort & port_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   Answered const answered_;
   std::map< std::string, Enabling > running_; // by interface
};

} // namespace Valend
