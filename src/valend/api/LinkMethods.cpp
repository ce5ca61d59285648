#include "valend/api/LinkMethods.h"

#include "platform/quill/Printable.h"

#include "valend/api/Users.h"
#include "valend/kernel/Places.h"
#include "valend/report/StatusReport.h"

#include <charconv>
#include <map>

namespace Valend {

constexpr auto enumTexts( ShutdownStep ) {
   return std::to_array< EnumText< ShutdownStep > >( { { ShutdownStep::sent, "sent" },
                                                       { ShutdownStep::delayed, "delayed" },
                                                       { ShutdownStep::retrying, "retrying" },
                                                       { ShutdownStep::ended, "ended" } } );
}

constexpr auto enumTexts( Enabled ) {
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
      method( "Goodbye", Right::change, *this, &Self::goodbye ),
   };
}

// --- What a call asks for ------------------------------------------------------------------------

std::vector< std::string > LinkMethods::chosen( Choice const & choice ) const {
   return choice.interfaces( feeder_.config(), store_ );
}

std::vector< std::string > LinkMethods::required( Choice const & choice ) const {
   choice.require();
   return chosen( choice );
}

void LinkMethods::list( Call const & call, Names const & names, Text const & vrf,
                        Text const & device, Flag ready ) {
   call->reply( { { "interfaces", chosen( { names, vrf, device, ready, {} } ) } } );
}

U64 LinkMethods::maxDelayMs() const {
   auto const text = configurator_.active().wanted().value( "max-shutdown-delay-ms" );
   U64 value = 0;
   std::from_chars( text.data(), text.data() + text.size(), value );
   return value;
}

Request LinkMethods::requestOf( Call const & call, Text const & reason, Number delayMs ) const {
   auto const unprintable = Quill::unprintableIn( reason.value_or( "" ) );
   if ( reason && ( unprintable || reason->empty() || reason->size() > maxReasonBytes ) ) {
      throw Errors::badReason( maxReasonBytes, unprintable );
   }
   if ( delayMs && *delayMs > maxDelayMs() ) {
      throw Errors::delayTooLong( *delayMs, maxDelayMs() );
   }
   Request request;
   request.by = userName( call->caller().uid );
   request.login = loginBehind( call->caller() );
   request.reason = reason.value_or( "" );
   if ( delayMs ) {
      request.delay = std::chrono::milliseconds( *delayMs );
   }
   return request;
}

// --- Shutting down -------------------------------------------------------------------------------

// Whether a call does not wait for more: the shutdown has ended, or it is not known when it will.
constexpr bool isLast( ShutdownStep step ) noexcept {
   return step == ShutdownStep::ended || step == ShutdownStep::retrying;
}

// A call that waits for the shutdowns of several interfaces. What they do in one turn of the loop
// becomes one answer.
class LinkMethods::Many : public std::enable_shared_from_this< Many > {
 public:
   Many( LinkMethods & links, Call call, std::size_t count )
       : work_( links.work_ ), call_( std::move( call ) ), pending_( count ), unbegun_( count ) {}

   // How far one of the shutdowns is.
   struct Progress {
      bool begun = false;
      bool over = false; // nothing more is told
   };
   void add( Progress & progress, ShutdownStep step, Json json ) {
      unbegun_ -= !std::exchange( progress.begun, true );
      progress.over = isLast( step );
      pending_ -= progress.over;
      steps_.push_back( std::move( json ) );
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
   std::size_t pending_; // are not over
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
      auto const configured = feeder_.config().shutdownDelayMs.value_or( 0 );
      left = record.request.delay.value_or( std::chrono::milliseconds( configured ) );
   }
   bool const held = step == ShutdownStep::delayed;
   return { { "step", textOf( step ) },
            { "delayMs", held && left ? Json( left->count() ) : Json() },
            { "shutdown", StatusReport::record( record ) } };
}

void LinkMethods::shutdown( Call const & call, std::string const & interface, Text const & reason,
                            Number delayMs ) {
   auto const came = cameTo( interface );
   controller_.shutdown( interface, requestOf( call, reason, delayMs ),
                         [ this, call, came ]( ShutdownStep step, ShutdownRecord const & record ) {
                            if ( !call->open() ) {
                               return; // answered before
                            }
                            if ( call->more() && !isLast( step ) ) {
                               call->replyContinues( stepJson( step, record, came ) );
                            } else if ( step != ShutdownStep::sent ) {
                               call->reply( stepJson( step, record, came ) );
                            }
                         } );
}

void LinkMethods::shutdownMany( Call const & call, Names const & names, Text const & vrf,
                                Text const & device, Flag ready, Flag all, Text const & reason,
                                Number delayMs ) {
   auto const selected = required( { names, vrf, device, ready, all } );
   auto const request = requestOf( call, reason, delayMs );
   if ( selected.empty() ) {
      return call->reply( { { "steps", Json::array() }, { "pending", 0 } } );
   }
   auto const many = std::make_shared< Many >( *this, call, selected.size() );
   for ( auto const & name : selected ) {
      controller_.shutdown( name, request,
                            [ this, call, many, came = cameTo( name ),
                              progress = std::make_shared< Many::Progress >() ](
                               ShutdownStep step, ShutdownRecord const & record ) {
                               bool const told = step != ShutdownStep::sent || call->more();
                               if ( told && !progress->over ) {
                                  many->add( *progress, step, stepJson( step, record, came ) );
                               }
                            } );
   }
}

// --- Enabling ------------------------------------------------------------------------------------

// A call that waits for the results of several interfaces.
class LinkMethods::Results {
 public:
   // Answers at once if there are none.
   static std::shared_ptr< Results > of( Call const & call, std::size_t count ) {
      auto results = std::make_shared< Results >();
      results->call_ = call;
      results->pending_ = count;
      results->answerIfDone();
      return results;
   }
   void add( std::string const & interface, Json result ) {
      byInterface_[ interface ] = std::move( result );
      --pending_;
      answerIfDone();
   }

 private:
   void answerIfDone() const {
      if ( pending_ > 0 ) {
         return;
      }
      auto list = Json::array();
      for ( auto const & [ name, result ] : byInterface_ ) {
         list.push_back( result );
      }
      call_->reply( { { "results", std::move( list ) } } );
   }

   Call call_;
   std::size_t pending_ = 0;
   std::map< std::string, Json > byInterface_;
};

void LinkMethods::enable( Call const & call, std::string const & interface ) {
   auto const requester = requestOf( call, {}, {} ).requester();
   controller_.enable( interface, requester, [ call ]( EnableResult const & result ) {
      if ( auto const * const enabled = std::get_if< Enabled >( &result ) ) {
         call->reply( { { "result", textOf( *enabled ) } } );
      } else {
         answer( *call, std::get< Refusal >( result ) );
      }
   } );
}

void LinkMethods::enableMany( Call const & call, Names const & names, Text const & vrf,
                              Text const & device, Flag ready, Flag all ) {
   auto const requester = requestOf( call, {}, {} ).requester();
   auto const selected = required( { names, vrf, device, ready, all } );
   auto const results = Results::of( call, selected.size() );
   for ( auto const & name : selected ) { // one that is refused does not keep the others
      controller_.enable( name, requester, [ results, name ]( EnableResult const & result ) {
         auto const * const enabled = std::get_if< Enabled >( &result );
         auto const * const refusal = std::get_if< Refusal >( &result );
         results->add( name, { { "interface", name },
                               { "result", enabled ? textOf( *enabled ) : "failed" },
                               { "message", refusal ? Json( refusal->what() ) : Json() } } );
      } );
   }
}

// --- Saying goodbye ------------------------------------------------------------------------------

void LinkMethods::goodbye( Call const & call, Names const & names, Text const & vrf,
                           Text const & device, Flag ready, Flag all, Text const & reason ) {
   auto const selected = required( { names, vrf, device, ready, all } );
   auto const request = requestOf( call, reason, {} );
   auto const results = Results::of( call, selected.size() );
   for ( auto const & name : selected ) {
      sayGoodbye( results, name, request );
   }
}

// A device that is missing is not down: its interface is not ready.
bool LinkMethods::isDown( std::string const & interface ) const {
   auto const & config = feeder_.config();
   try {
      return !port_.up( placeOf( config, config.interfaces.at( interface ) ) );
   } catch ( Quill::ErrnoException const & ) {
      return false;
   }
}

void LinkMethods::sayGoodbye( std::shared_ptr< Results > const & results, std::string const & name,
                              Request const & request ) {
   auto const add = [ results, name ]( char const * result, Json message, Json record ) {
      results->add( name, { { "interface", name },
                            { "result", result },
                            { "message", std::move( message ) },
                            { "goodbye", std::move( record ) } } );
   };
   if ( isDown( name ) ) {
      return add( "already-down", {}, {} );
   }
   auto const whyNot =
      controller_.goodbye( name, request, [ add ]( auto, ShutdownRecord const & record ) {
         bool const sent = record.sent > 0 && record.failed == 0 && record.unflushedBytes == 0;
         add( sent ? "sent" : "failed", record.why.empty() ? Json() : Json( record.why ),
              StatusReport::record( record ) );
      } );
   if ( !whyNot.empty() ) {
      add( "not-ready", whyNot, {} );
   }
}

} // namespace Valend
