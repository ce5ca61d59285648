// What the control API's methods do. org.valen.daemon.varlink describes them.
#pragma once

#include "valend/api/Access.h"
#include "valend/api/LinkMethods.h"
#include "valend/api/WatchMethods.h"
#include "valend/base/FaultLog.h"
#include "valend/base/TraceHub.h"
#include "valend/configuration/Configurator.h"
#include "valend/configuration/Publications.h"
#include "valend/report/Metrics.h"

namespace Valend {

class Api final : public Varlink::Service {
 public:
   // What the methods work on. All must outlive the API.
   struct Parts {
      Store & store;
      Feeder & feeder;
      Publications & publications;
      LinkPort & port;
      LinkController & controller;
      FaultLog & faults;
      Conditions const & conditions;
      Metrics const & metrics;
      TraceHub & trace;
      Configurator & configurator;
      Access & access;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
      Gantry::WorkQueue & work;
   };

   explicit Api( Parts const & parts );

   void call( std::shared_ptr< Varlink::Call > call ) override;
   void clientGone( U64 client ) override;

 private:
   using Call = std::shared_ptr< Varlink::Call > const &;
   struct Method {
      char const * name;
      void ( Api::*run )( Call call );
      Right right;
   };
   static Method const methods[];

   void dispatch( Call call );
   void require( Call call, Right right ) const;
   static void requireMore( Call call );
   Settings::InterfaceConfig const & interface( std::string const & name ) const;

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
   LinkMethods links_;
   WatchMethods watches_;
};

} // namespace Valend
