// Requests of a database for links: hashes "want:INTERFACE" (Want.h), which say what is wanted, for as long as they are
// there. So a request is not lost with a connection, or with valend.
//
// A request is acted on once, which its id tells. It is recorded on the disk before it is acted on (RequestsFile.h), and
// afterwards with its result. A request of the previous run that was recorded without a result
//   - is followed, if its shutdown continues;
//   - has the result of its shutdown, if that has ended;
//   - else has not begun, and is acted on when the hash is seen again. To set a link up that is up changes nothing.
// A request that is replaced before it is acted on is dropped. One for an interface that is not configured waits
// until the configuration is settled, and for a moment in which the interface may come, and is rejected then.
//
// Results: "running", then how the shutdown ended ("down", "aborted", "already-down", "failed: WHY"); "up",
// "already-up", "aborted" or "failed: WHY" of a link that was to be set up; "rejected: WHY".
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/base/Slices.h"
#include "valend/database/RequestsFile.h"
#include "valend/database/Want.h"
#include "valend/shutdown/LinkController.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>

namespace Valend {

class Requests {
 public:
   static constexpr char const * prefix = "want:"; // of the keys
   // How long an interface may take to be configured, after the configuration is settled.
   static constexpr std::chrono::milliseconds graceTime{ 1000 };

   // All must outlive this.
   struct Surroundings {
      LinkController & controller;
      Settings::Config const & config; // the active one
      RequestsFile & file;
      std::function< U64() > maxDelayMs;
      std::function< bool() > settled; // whether the configuration is: DatabaseLayer::settled()
   };
   using Result = std::function< void( std::string const & interface, std::string const & id,
                                       std::string const & result ) >;

   Requests( Surroundings surroundings, Gantry::WorkQueue & work,
             Quill::Ptr< Gantry::TaskScheduler > scheduler );
   Requests( Requests const & ) = delete;
   Requests & operator=( Requests const & ) = delete;

   // `result` is told what has come of the last request for an interface, as soon as it is known, and again when it
   // changes. The id is empty if the request has none that is valid. Call it before resume().
   void resultIs( Result result ) { result_ = std::move( result ); }
   // Takes over what the previous run left. Call it once, after LinkController::resume().
   void resume();

   // The key has no prefix of this valend; others than "want:" are ignored.
   void entityIs( std::string const & key, Settings::Fields const & fields );
   void entityGone( std::string const & key );
   // The configuration is settled: DatabaseLayer::settledIs().
   void configSettled();

 private:
   // The last request for an interface that was accepted or rejected.
   struct Known {
      std::string id;
      std::string result = {}; // the last one; empty as long as it is only recorded
      bool open = true;        // the result is not the last one
      bool begun = true;       // by this run
   };

   bool isConfigured( std::string const & interface ) const;
   void decide( std::string const & interface, Want const & want );
   void accept( std::string const & interface, Want const & want );
   void act( std::string const & interface, Want const & want );
   void shutDown( std::string const & interface, Request const & request );
   void setUp( std::string const & interface, Request const & request );
   void resumeOne( std::string const & interface, Known & known );
   void progress( std::string const & interface, std::string const & id,
                  std::string const & result );
   void end( std::string const & interface, std::string const & id, std::string const & result );
   void save( std::string const & interface, Known const & known );
   void tell( std::string const & interface, Known const & known ) const;
   void waitedLongEnough();

   Surroundings const surroundings_;
   Result result_;
   std::map< std::string, Known > known_;  // by interface
   std::map< std::string, Want > waiting_; // for their interfaces
   Slices slices_;
   Gantry::Timer timer_;
};

} // namespace Valend
