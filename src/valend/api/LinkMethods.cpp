#include "valend/api/LinkMethods.h"

#include "valend/base/Errors.h"
#include "valend/report/StatusReport.h"

#include <set>

namespace Valend {

namespace {

char const * resultText( LinkController::Enabled result ) {
   switch ( result ) {
   case LinkController::Enabled::up:
      return "up";
   case LinkController::Enabled::alreadyUp:
      return "already-up";
   case LinkController::Enabled::aborted:
      break;
   }
   return "aborted";
}

} // namespace

// A call that waits for the shutdowns of several interfaces. What they do in one turn of the loop
// becomes one answer.
class LinkMethods::Many : public std::enable_shared_from_this< Many > {
 public:
   Many( LinkMethods & links, std::shared_ptr< Varlink::Call > call, std::size_t count )
       : work_( links.work_ ), call_( std::move( call ) ), pending_( count ), unbegun_( count ) {}

   // `begun`: it is the first that is heard of this interface.
   void add( Json step, bool begun, bool ended ) {
      unbegun_ -= begun;
      pending_ -= ended;
      steps_.push_back( std::move( step ) );
      if ( !posted_ && ( call_->more() || !unbegun_ ) ) {
         posted_ = true;
         work_.post( [ self = shared_from_this() ] { self->answer(); } );
      }
   }

   void answer() {
      posted_ = false;
      auto const steps = std::exchange( steps_, Json::array() );
      call_->reply( { { "steps", steps }, { "pending", pending_ } }, call_->more() && pending_ );
   }

 private:
   Gantry::WorkQueue & work_;
   std::shared_ptr< Varlink::Call > const call_;
   std::size_t pending_; // have not ended
   std::size_t unbegun_; // are not under way
   bool posted_ = false; // an answer is
   Json steps_ = Json::array();
};

std::vector< std::string > LinkMethods::names( Wanted const & wanted ) const {
   auto const & config = feeder_.config();
   if ( wanted.vrf && *wanted.vrf != Settings::defaultVrf &&
        !config.vrfs.contains( *wanted.vrf ) ) {
      throw Errors::noSuchVrf( *wanted.vrf );
   }
   auto const given = wanted.names.value_or( std::vector< std::string >() );
   std::set< std::string > const named( given.begin(), given.end() );
   for ( auto const & name : named ) {
      if ( !config.interfaces.contains( name ) ) {
         throw Errors::noSuchInterface( name );
      }
   }
   std::vector< std::string > names;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      if ( ( !wanted.names || named.contains( name ) ) && isWanted( interface, wanted ) ) {
         names.push_back( name );
      }
   }
   return names;
}

bool LinkMethods::isWanted( Settings::InterfaceConfig const & interface,
                            Wanted const & wanted ) const {
   auto const status = store_.statusDir->intfStatus( Corvid::IntfId( interface.name ) );
   return ( !wanted.vrf || interface.vrf == *wanted.vrf ) &&
          ( !wanted.device || interface.device == *wanted.device ) &&
          ( !wanted.ready || ( status && status->shouldDelay() ) );
}

Json LinkMethods::stepJson( ShutdownStep step, ShutdownRecord const & record, bool joined ) const {
   bool const held = step == ShutdownStep::delayed;
   auto left = controller_.remaining( record.interface );
   if ( left && !joined ) { // what is left of it a moment after its beginning is for nobody to read
      left = std::chrono::milliseconds( feeder_.config().shutdownDelayMs.value_or( 0 ) );
   }
   return { { "step", step == ShutdownStep::sent      ? "sent"
                      : step == ShutdownStep::delayed ? "delayed"
                                                      : "ended" },
            { "delayMs", held && left ? Json( left->count() ) : Json() },
            { "shutdown", StatusReport::record( record ) } };
}

void LinkMethods::shutdown( Call call, std::string const & interface ) {
   bool const joined = controller_.running( interface );
   controller_.shutdown(
      interface, call->caller().name(),
      [ this, call, joined ]( ShutdownStep step, ShutdownRecord const & record ) {
         bool const last = step == ShutdownStep::ended;
         if ( call->more() || step != ShutdownStep::sent ) {
            call->reply( stepJson( step, record, joined ), call->more() && !last );
         }
      } );
}

void LinkMethods::shutdownMany( Call call, Wanted const & wanted ) {
   auto const all = names( wanted );
   if ( all.empty() ) {
      return call->reply( { { "steps", Json::array() }, { "pending", 0 } } );
   }
   auto const many = std::make_shared< Many >( *this, call, all.size() );
   for ( auto const & name : all ) {
      bool const joined = controller_.running( name );
      controller_.shutdown( name, call->caller().name(),
                            [ this, call, many, joined, begun = false ](
                               ShutdownStep step, ShutdownRecord const & record ) mutable {
                               if ( call->more() || step != ShutdownStep::sent ) {
                                  many->add( stepJson( step, record, joined ),
                                             !std::exchange( begun, true ),
                                             step == ShutdownStep::ended );
                               }
                            } );
   }
}

void LinkMethods::enable( Call call, std::string const & interface ) {
   auto const result = controller_.enable( interface, call->caller().name() );
   call->reply( { { "result", resultText( result ) } } );
}

void LinkMethods::enableMany( Call call, Wanted const & wanted ) {
   auto results = Json::array();
   for ( auto const & name : names( wanted ) ) {
      Json result{ { "interface", name }, { "result", "failed" }, { "message", nullptr } };
      try {
         result[ "result" ] = resultText( controller_.enable( name, call->caller().name() ) );
      } catch ( Refusal const & e ) { // of this one; the others are enabled all the same
         result[ "message" ] = e.what();
      }
      results.push_back( std::move( result ) );
   }
   call->reply( { { "results", std::move( results ) } } );
}

} // namespace Valend
