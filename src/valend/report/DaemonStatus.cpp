#include "valend/report/DaemonStatus.h"

#include "settings/Version.h"

namespace Valend {

namespace {

Json conditionsJson( Conditions const & conditions ) {
   using std::chrono::milliseconds;
   auto list = Json::array();
   for ( auto const & [ name, text, since ] : conditions.raised() ) {
      auto const sinceMs = std::chrono::duration_cast< milliseconds >( since.time_since_epoch() );
      list.push_back( { { "name", name }, { "text", text }, { "since", sinceMs.count() } } );
   }
   return list;
}

} // namespace

Json DaemonStatus::json() const {
   auto const & delayMs = feeder_.config().shutdownDelayMs;
   return { { "version", Settings::version },
            { "shutdownDelayMs", delayMs ? Json( *delayMs ) : Json() },
            { "active", store_.statusDir->agentActive() },
            { "faults", faults_.count() },
            { "lastFaults", faults_.texts() },
            { "conditions", conditionsJson( conditions_ ) },
            { "vrfs", report_.vrfs() } };
}

} // namespace Valend
