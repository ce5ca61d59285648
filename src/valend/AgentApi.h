// What the control API's methods do. org.valen.Agent.varlink describes them.
#pragma once

#include "valend/ApiAccess.h"
#include "valend/ApiLinks.h"
#include "valend/ApiWatches.h"
#include "valend/Configurator.h"
#include "valend/FaultLog.h"
#include "valend/Publications.h"
#include "valend/TraceHub.h"

namespace Valend {

class AgentApi final : public ApiService {
 public:
   // What the methods work on. All must outlive the API.
   struct Parts {
      Store & store;
      Feeder & feeder;
      Publications & publications;
      LinkPort & port;
      LinkController & controller;
      FaultLog & faults;
      TraceHub & trace;
      Configurator & configurator;
      ApiAccess & access;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
      LinkController::Post post; // runs work at the end of the loop's turn
   };

   explicit AgentApi( Parts const & parts );

   void call( std::shared_ptr< ApiCall > call ) override;
   void clientGone( U64 client ) override;

 private:
   using Call = std::shared_ptr< ApiCall > const &;
   struct Method {
      char const * name;
      void ( AgentApi::*run )( Call call );
      ApiRight right;
   };
   static Method const methods[];

   void dispatch( Call call );
   void require( Call call, ApiRight right ) const;
   static void requireMore( Call call );
   InterfaceConfig const & interface( std::string const & name ) const;

   void getInfo( Call call );
   void getInterfaceDescription( Call call );
   void list( Call call );
   void status( Call call );
   void watchStatus( Call call );
   void explain( Call call );
   void wait( Call call );
   void shutdown( Call call );
   void shutdownMany( Call call );
   void enable( Call call );
   void enableMany( Call call );
   void history( Call call );
   void metrics( Call call );
   void publish( Call call );
   void withdraw( Call call );
   void listMessages( Call call );
   void trace( Call call );
   void traceLevels( Call call );
   void show( Call call );
   void reload( Call call );
   void config( Call call );
   void watch( Call call );

   Parts const parts_;
   StatusReport const report_;
   ApiLinks links_;
   ApiWatches watches_;
};

} // namespace Valend
