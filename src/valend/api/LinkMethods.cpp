#include "valend/api/LinkMethods.h"

#include "valend/report/StatusReport.h"

#include <set>

namespace Valend {

constexpr auto enumTexts( ShutdownStep ) {
   return std::to_array< EnumText< ShutdownStep > >( { { ShutdownStep::sent, "sent" },
                                                       { ShutdownStep::delayed, "delayed" },
                                                       { ShutdownStep::ended, "ended" } } );
}

constexpr auto enumTexts( LinkController::Enabled ) {
   using Enabled = LinkController::Enabled;
   return std::to_array< EnumText< Enabled > >( { { Enabled::up, "up" },
                                                  { Enabled::alreadyUp, "already-up" },
                                                  { Enabled::aborted, "aborted" } } );
}

std::vector< Method > LinkMethods::methods() {
   using Self = LinkMethods;
   return {
      method( "List", Right::read, *this, &Self::list ),
      method( "Shutdown", Right::change, *this, &Self::shutdown ),
      method( "ShutdownMany", Right::change, *this, &Self::shutdownMany ),
      method( "Enable", Right::change, *this, &Self::enable ),
      method( "EnableMany", Right::change, *this, &Self::enableMany ),
   };
}

// --- The choice of interfaces --------------------------------------------------------------------

std::vector< std::string > LinkMethods::chosen( Choice const & choice ) const {
   auto const & config = feeder_.config();
   if ( choice.vrf && *choice.vrf != Settings::defaultVrf &&
        !config.vrfs.contains( *choice.vrf ) ) {
      throw Errors::noSuchVrf( *choice.vrf );
   }
   auto const given = choice.names.value_or( std::vector< std::string >() );
   std::set< std::string > const named( given.begin(), given.end() );
   for ( auto const & name : named ) {
      if ( !config.interfaces.contains( name ) ) {
         throw Errors::noSuchInterface( name );
      }
   }
   std::vector< std::string > names;
   for ( auto const & [ name, interface ] : config.interfaces ) {
      if ( ( !choice.names || named.contains( name ) ) && isChosen( interface, choice ) ) {
         names.push_back( name );
      }
   }
   return names;
}

bool LinkMethods::isChosen( Settings::InterfaceConfig const & interface,
                            Choice const & choice ) const {
   auto const status = store_.statusDir->intfStatus( Corvid::IntfId( interface.name ) );
   return ( !choice.vrf || interface.vrf == *choice.vrf ) &&
          ( !choice.device || interface.device == *choice.device ) &&
          ( !choice.ready || ( status && status->shouldDelay() ) );
}

void LinkMethods::list( Call const & call, Names const & names, Text const & vrf,
                        Text const & device, Flag ready ) {
   call->reply( { { "interfaces", chosen( { names, vrf, device, ready.value_or( false ) } ) } } );
}

// --- Shutting down -------------------------------------------------------------------------------

// A call that waits for the shutdowns of several interfaces. What they do in one turn of the loop
// becomes one answer.
class LinkMethods::Many : public std::enable_shared_from_this< Many > {
 public:
   Many( LinkMethods & links, Call call, std::size_t count )
       : work_( links.work_ ), call_( std::move( call ) ), pending_( count ), unbegun_( count ) {}

   // The first step of an interface.
   void begun( Json step ) {
      --unbegun_;
      add( std::move( step ) );
   }
   void add( Json step ) {
      pending_ -= step[ "step" ] == textOf( ShutdownStep::ended );
      steps_.push_back( std::move( step ) );
      if ( !posted_ && ( call_->more() || !unbegun_ ) ) {
         posted_ = true;
         work_.post( [ self = shared_from_this() ] { self->answer(); } );
      }
   }

 private:
   void answer() {
      posted_ = false;
      Json answer{ { "steps", std::exchange( steps_, Json::array() ) }, { "pending", pending_ } };
      if ( call_->more() && pending_ ) {
         call_->replyContinues( std::move( answer ) );
      } else {
         call_->reply( std::move( answer ) );
      }
   }

   Gantry::WorkQueue & work_;
   Call const call_;
   std::size_t pending_; // have not ended
   std::size_t unbegun_; // have not begun
   bool posted_ = false; // an answer is
   Json steps_ = Json::array();
};

LinkMethods::Came LinkMethods::cameTo( std::string const & interface ) const {
   return controller_.running( interface ) ? Came::joined : Came::first;
}

Json LinkMethods::stepJson( ShutdownStep step, ShutdownRecord const & record, Came came ) const {
   auto left = controller_.remaining( record.interface );
   if ( left && came == Came::first ) { // a moment after its beginning: all of it
      left = std::chrono::milliseconds( feeder_.config().shutdownDelayMs.value_or( 0 ) );
   }
   bool const held = step == ShutdownStep::delayed;
   return { { "step", textOf( step ) },
            { "delayMs", held && left ? Json( left->count() ) : Json() },
            { "shutdown", StatusReport::record( record ) } };
}

void LinkMethods::shutdown( Call const & call, std::string const & interface ) {
   auto const came = cameTo( interface );
   controller_.shutdown( interface, call->caller().name(),
                         [ this, call, came ]( ShutdownStep step, ShutdownRecord const & record ) {
                            if ( call->more() && step != ShutdownStep::ended ) {
                               call->replyContinues( stepJson( step, record, came ) );
                            } else if ( step != ShutdownStep::sent ) {
                               call->reply( stepJson( step, record, came ) );
                            }
                         } );
}

void LinkMethods::shutdownMany( Call const & call, Names const & names, Text const & vrf,
                                Text const & device, Flag ready ) {
   auto const all = chosen( { names, vrf, device, ready.value_or( false ) } );
   if ( all.empty() ) {
      return call->reply( { { "steps", Json::array() }, { "pending", 0 } } );
   }
   auto const many = std::make_shared< Many >( *this, call, all.size() );
   for ( auto const & name : all ) {
      controller_.shutdown( name, call->caller().name(),
                            [ this, call, many, came = cameTo( name ), begun = false ](
                               ShutdownStep step, ShutdownRecord const & record ) mutable {
                               if ( step == ShutdownStep::sent && !call->more() ) {
                                  return;
                               }
                               auto json = stepJson( step, record, came );
                               if ( std::exchange( begun, true ) ) {
                                  many->add( std::move( json ) );
                               } else {
                                  many->begun( std::move( json ) );
                               }
                            } );
   }
}

// --- Enabling ------------------------------------------------------------------------------------

void LinkMethods::enable( Call const & call, std::string const & interface ) {
   auto const result = controller_.enable( interface, call->caller().name() );
   call->reply( { { "result", textOf( result ) } } );
}

void LinkMethods::enableMany( Call const & call, Names const & names, Text const & vrf,
                              Text const & device, Flag ready ) {
   auto results = Json::array();
   for ( auto const & name : chosen( { names, vrf, device, ready.value_or( false ) } ) ) {
      Json result{ { "interface", name }, { "result", "failed" }, { "message", nullptr } };
      try {
         result[ "result" ] = textOf( controller_.enable( name, call->caller().name() ) );
      } catch ( Refusal const & e ) { // of this one; the others are enabled all the same
         result[ "message" ] = e.what();
      }
      results.push_back( std::move( result ) );
   }
   call->reply( { { "results", std::move( results ) } } );
}

} // namespace Valend
