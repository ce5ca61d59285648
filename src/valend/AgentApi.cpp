#include "valend/AgentApi.h"

#include "valend/Description.h"
#include "valend/StoreWalker.h"
#include "valend/Version.h"

#include <algorithm>

namespace Valend {

namespace {

constexpr char const * ownInterface = "org.valen.Agent";
constexpr char const * serviceInterface = "org.varlink.service";

std::string ownName( std::string const & name ) {
   return std::string( ownInterface ) + "." + name;
}

// A parameter that is not what the description says.
struct BadParameter {
   char const * name;
};

std::optional< std::string > optionalText( ApiCall const & call, char const * name ) {
   auto const found = call.parameters().find( name );
   if ( found == call.parameters().end() || found->is_null() ) {
      return std::nullopt;
   }
   if ( !found->is_string() ) {
      throw BadParameter{ name };
   }
   return found->get< std::string >();
}

std::string requiredText( ApiCall const & call, char const * name ) {
   auto const text = optionalText( call, name );
   if ( !text ) {
      throw BadParameter{ name };
   }
   return *text;
}

std::size_t countParameter( ApiCall const & call, char const * name, std::size_t otherwise ) {
   auto const found = call.parameters().find( name );
   if ( found == call.parameters().end() || found->is_null() ) {
      return otherwise;
   }
   if ( !found->is_number_integer() || found->get< S64 >() < 0 ) {
      throw BadParameter{ name };
   }
   return found->get< std::size_t >();
}

Json linesJson( std::vector< TraceHub::Line > const & lines ) {
   auto list = Json::array();
   for ( auto const & line : lines ) {
      list.push_back( { { "timeNs", line.timeNs },
                        { "unit", line.unit },
                        { "level", line.level },
                        { "text", line.text } } );
   }
   return list;
}

} // namespace

AgentApi::Method const AgentApi::methods[] = {
   { "org.varlink.service.GetInfo", &AgentApi::getInfo, false },
   { "org.varlink.service.GetInterfaceDescription", &AgentApi::getInterfaceDescription, false },
   { "org.valen.Agent.Status", &AgentApi::status, false },
   { "org.valen.Agent.Shutdown", &AgentApi::shutdown, true },
   { "org.valen.Agent.Enable", &AgentApi::enable, true },
   { "org.valen.Agent.History", &AgentApi::history, false },
   { "org.valen.Agent.Trace", &AgentApi::trace, false },
   { "org.valen.Agent.TraceLevels", &AgentApi::traceLevels, false },
   { "org.valen.Agent.Show", &AgentApi::show, false },
   { "org.valen.Agent.Reload", &AgentApi::reload, true },
   { "org.valen.Agent.Config", &AgentApi::config, false },
};

AgentApi::AgentApi( Parts const & parts )
    : parts_( parts ), report_( parts.store, parts.feeder, parts.port, parts.controller ) {}

void AgentApi::call( std::shared_ptr< ApiCall > call ) {
   try {
      dispatch( call );
   } catch ( Refusal const & e ) {
      call->error( ownName( e.name() ), { { "message", e.what() } } );
   } catch ( BadParameter const & bad ) {
      call->error( "org.varlink.service.InvalidParameter", { { "parameter", bad.name } } );
   }
}

void AgentApi::dispatch( Call call ) {
   auto const & wanted = call->method();
   for ( auto const & method : methods ) {
      if ( wanted != method.name ) {
         continue;
      }
      if ( method.changes && !call->caller().isRoot() ) {
         return call->error( "org.varlink.service.PermissionDenied",
                             { { "message", call->caller().name() + " may not call " + wanted +
                                               "; only root may" } } );
      }
      return ( this->*method.run )( call );
   }
   auto const interface = wanted.substr( 0, wanted.rfind( '.' ) );
   if ( interface == ownInterface || interface == serviceInterface ) {
      call->error( "org.varlink.service.MethodNotFound", { { "method", wanted } } );
   } else {
      call->error( "org.varlink.service.InterfaceNotFound", { { "interface", interface } } );
   }
}

void AgentApi::getInfo( Call call ) {
   call->reply( { { "vendor", "Valen" },
                  { "product", "valend" },
                  { "version", version },
                  { "url", "" },
                  { "interfaces", { serviceInterface, ownInterface } } } );
}

void AgentApi::getInterfaceDescription( Call call ) {
   auto const interface = requiredText( *call, "interface" );
   auto const * const text = interface == ownInterface       ? agentDescription
                             : interface == serviceInterface ? serviceDescription
                                                             : nullptr;
   if ( text ) {
      call->reply( { { "description", text } } );
   } else {
      call->error( "org.varlink.service.InterfaceNotFound", { { "interface", interface } } );
   }
}

void AgentApi::status( Call call ) {
   auto const & config = parts_.feeder.config();
   auto interfaces = Json::array();
   if ( auto const wanted = optionalText( *call, "interface" ) ) {
      auto const found = config.interfaces.find( *wanted );
      if ( found == config.interfaces.end() ) {
         throw Refusal( "NoSuchInterface", "no interface \"" + *wanted + "\" is configured" );
      }
      interfaces.push_back( report_.interface( found->second ) );
   } else {
      interfaces = report_.interfaces();
   }
   call->reply(
      { { "version", version },
        { "shutdownDelayMs", config.shutdownDelayMs ? Json( *config.shutdownDelayMs ) : Json() },
        { "active", parts_.store.statusDir->agentActive() },
        { "faults", parts_.faults.count() },
        { "lastFaults", parts_.faults.texts() },
        { "trouble",
          parts_.controller.trouble().empty() ? Json() : Json( parts_.controller.trouble() ) },
        { "interfaces", std::move( interfaces ) },
        { "vrfs", report_.vrfs() } } );
}

Json AgentApi::stepJson( ShutdownStep step, ShutdownRecord const & record ) const {
   bool const held = step == ShutdownStep::delayed;
   auto const delay = parts_.feeder.config().shutdownDelayMs.value_or( 0 );
   return { { "step", step == ShutdownStep::sent      ? "sent"
                      : step == ShutdownStep::delayed ? "delayed"
                                                      : "ended" },
            { "delayMs", held ? Json( delay ) : Json() },
            { "shutdown", StatusReport::record( record ) } };
}

void AgentApi::shutdown( Call call ) {
   parts_.controller.shutdown( requiredText( *call, "interface" ), call->caller().name(),
                               [ this, call ]( ShutdownStep step, ShutdownRecord const & record ) {
                                  bool const last = step == ShutdownStep::ended;
                                  if ( call->more() || step != ShutdownStep::sent ) {
                                     call->reply( stepJson( step, record ), call->more() && !last );
                                  }
                               } );
}

void AgentApi::enable( Call call ) {
   using Enabled = LinkController::Enabled;
   auto const result =
      parts_.controller.enable( requiredText( *call, "interface" ), call->caller().name() );
   call->reply( { { "result", result == Enabled::up          ? "up"
                              : result == Enabled::alreadyUp ? "already-up"
                                                             : "aborted" } } );
}

void AgentApi::history( Call call ) {
   auto const wanted = optionalText( *call, "interface" );
   auto list = Json::array();
   for ( auto const & record : parts_.controller.history() ) {
      if ( !wanted || record.interface == *wanted ) {
         list.push_back( StatusReport::record( record ) );
      }
   }
   call->reply( { { "shutdowns", std::move( list ) } } );
}

void AgentApi::trace( Call call ) {
   auto const count = std::min< std::size_t >( countParameter( *call, "lines", 100 ), 10'000 );
   call->reply(
      { { "lines", linesJson( parts_.trace.recent( count ) ) }, { "lost", parts_.trace.lost() } },
      call->more() );
   if ( !call->more() ) {
      return;
   }
   parts_.trace.follow( [ this, call ]( auto const & lines ) {
      if ( !lines.empty() ) {
         call->reply( { { "lines", linesJson( lines ) }, { "lost", parts_.trace.lost() } }, true );
      }
      return call->open();
   } );
}

void AgentApi::traceLevels( Call call ) {
   if ( auto const levels = optionalText( *call, "levels" ) ) {
      if ( !call->caller().isRoot() ) {
         return call->error(
            "org.varlink.service.PermissionDenied",
            { { "message", call->caller().name() + " may not set trace levels; only root may" } } );
      }
      try {
         Quill::traceLevelsIs( *levels );
      } catch ( Quill::RangeException const & e ) {
         throw Refusal( "BadTraceLevels", e.what() );
      }
   }
   call->reply( { { "levels", Quill::traceLevels() } } );
}

void AgentApi::show( Call call ) {
   auto const path = requiredText( *call, "path" );
   auto value = showPath( *parts_.store.entityManager, path );
   if ( !value ) {
      throw Refusal( "NoSuchPath", "nothing stands at \"" + path + "\"" );
   }
   if ( value->dump( -1, ' ', false, Json::error_handler_t::replace ).size() > maxAnswerBytes ) {
      throw Refusal( "TooLarge", "what stands at \"" + path + "\" is more than " +
                                    std::to_string( maxAnswerBytes ) +
                                    " bytes; ask for a longer path" );
   }
   call->reply( { { "value", std::move( *value ) } } );
}

void AgentApi::reload( Call call ) {
   try {
      call->reply( { { "changed", parts_.configurator.reload() } } );
   } catch ( ConfigRefused const & e ) {
      call->error( ownName( "ConfigRefused" ),
                   { { "message", e.what() }, { "errors", e.errors() } } );
   }
}

void AgentApi::config( Call call ) {
   call->reply( parts_.configurator.inForce() );
}

} // namespace Valend
