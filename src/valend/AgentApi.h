// What the control API's methods do. org.valen.Agent.varlink describes them.
#pragma once

#include "valend/ApiCall.h"
#include "valend/Configurator.h"
#include "valend/FaultLog.h"
#include "valend/StatusReport.h"
#include "valend/TraceHub.h"

namespace Valend {

class AgentApi final : public ApiService {
 public:
   // What the methods work on. All must outlive the API.
   struct Parts {
      Store & store;
      Feeder & feeder;
      LinkPort & port;
      LinkController & controller;
      FaultLog & faults;
      TraceHub & trace;
      Configurator & configurator;
   };

   // The longest answer, in bytes.
   static constexpr std::size_t maxAnswerBytes = 16u << 20;

   explicit AgentApi( Parts const & parts );

   void call( std::shared_ptr< ApiCall > call ) override;

 private:
   using Call = std::shared_ptr< ApiCall > const &;
   struct Method {
      char const * name;
      void ( AgentApi::*run )( Call call );
      bool changes; // for root alone
   };
   static Method const methods[];

   void dispatch( Call call );
   void getInfo( Call call );
   void getInterfaceDescription( Call call );
   void status( Call call );
   void shutdown( Call call );
   void enable( Call call );
   void history( Call call );
   void trace( Call call );
   void traceLevels( Call call );
   void show( Call call );
   void reload( Call call );
   void config( Call call );
   Json stepJson( ShutdownStep step, ShutdownRecord const & record ) const;

   Parts const parts_;
   StatusReport const report_;
};

} // namespace Valend
