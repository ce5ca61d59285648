// The control API: a list of method groups. org.valen.daemon.varlink describes the methods.
//
// A call is answered with an error, before its method runs, when the method is not known, the caller
// lacks the right, or a parameter is not as described.
#pragma once

#include "valend/api/ConfigMethods.h"
#include "valend/api/FrameMethods.h"
#include "valend/api/LinkMethods.h"
#include "valend/api/ServiceMethods.h"
#include "valend/api/StatusMethods.h"
#include "valend/api/StoreMethods.h"
#include "valend/api/TraceMethods.h"
#include "valend/api/WatchMethods.h"

#include <map>

namespace Valend {

class Api final : public Varlink::Service {
 public:
   explicit Api( Parts const & parts );

   void call( std::shared_ptr< Varlink::Call > call ) override;
   Varlink::Rank rankOf( Varlink::Caller const & caller ) const override;
   void clientGone( U64 client ) override;

   // The qualified names of all methods: "org.valen.daemon.Shutdown".
   std::vector< std::string > methods() const;

 private:
   struct Row {
      Method method;
      Varlink::Description const & description;
   };

   void add( Varlink::Description const & description, MethodGroup & group );
   void dispatch( Call const & call ) const;
   Row const & row( std::string const & method ) const;

   Parts const parts_;
   StatusReport const report_;
   Varlink::Description const description_;
   Varlink::Description const serviceDescription_;

   ServiceMethods service_;
   LinkMethods links_;
   WatchMethods watches_;
   StatusMethods status_;
   FrameMethods frames_;
   StoreMethods store_;
   TraceMethods trace_;
   ConfigMethods config_;
   std::vector< MethodGroup * > const groups_{ &links_, &watches_, &status_, &frames_,
                                               &store_, &trace_,   &config_ };

   std::map< std::string, Row > rows_; // by qualified name
};

} // namespace Valend
