#include "valend/api/Api.h"

#include "valend/api/Description.h"
#include "valend/base/Errors.h"
#include "valend/base/Version.h"
#include "valend/configuration/ConfigurationJson.h"
#include "valend/store/StoreWalker.h"
#include "varlink/Parameters.h"

#include <algorithm>

namespace Valend {

namespace {

constexpr char const * ownInterface = "org.valen.daemon";
constexpr char const * serviceInterface = "org.varlink.service";
constexpr U64 maxPatienceMs = 24 * 3600 * 1000;

std::string ownName( std::string const & name ) {
   return std::string( ownInterface ) + "." + name;
}

// An error that this service raises itself.
struct NamedError {
   char const * name; // qualified
   std::string message;
};

LinkMethods::Wanted wantedOf( Varlink::Call const & call ) {
   return { optionalTexts( call, "interfaces" ), optionalText( call, "vrf" ),
            optionalText( call, "device" ), optionalFlag( call, "ready" ) };
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

Api::Method const Api::methods[] = {
   { "org.varlink.service.GetInfo", &Api::getInfo, Right::none },
   { "org.varlink.service.GetInterfaceDescription", &Api::getInterfaceDescription, Right::none },
   { "org.valen.daemon.List", &Api::list, Right::read },
   { "org.valen.daemon.Status", &Api::status, Right::read },
   { "org.valen.daemon.WatchStatus", &Api::watchStatus, Right::read },
   { "org.valen.daemon.Explain", &Api::explain, Right::read },
   { "org.valen.daemon.Wait", &Api::wait, Right::read },
   { "org.valen.daemon.Shutdown", &Api::shutdown, Right::change },
   { "org.valen.daemon.ShutdownMany", &Api::shutdownMany, Right::change },
   { "org.valen.daemon.Enable", &Api::enable, Right::change },
   { "org.valen.daemon.EnableMany", &Api::enableMany, Right::change },
   { "org.valen.daemon.History", &Api::history, Right::read },
   { "org.valen.daemon.Metrics", &Api::metrics, Right::read },
   { "org.valen.daemon.Publish", &Api::publish, Right::change },
   { "org.valen.daemon.Withdraw", &Api::withdraw, Right::change },
   { "org.valen.daemon.ListMessages", &Api::listMessages, Right::read },
   { "org.valen.daemon.Trace", &Api::trace, Right::read },
   { "org.valen.daemon.TraceLevels", &Api::traceLevels, Right::read },
   { "org.valen.daemon.Show", &Api::show, Right::read },
   { "org.valen.daemon.Watch", &Api::watch, Right::read },
   { "org.valen.daemon.Reload", &Api::reload, Right::change },
   { "org.valen.daemon.Config", &Api::config, Right::read },
};

Api::Api( Parts const & parts )
    : parts_( parts ), report_( parts.store, parts.feeder, parts.port, parts.controller ),
      links_( parts.store, parts.feeder, parts.controller, parts.work ),
      watches_( parts.store, report_, parts.feeder, parts.scheduler, parts.work ) {}

void Api::call( std::shared_ptr< Varlink::Call > call ) {
   try {
      dispatch( call );
   } catch ( Refusal const & e ) {
      call->error( ownName( e.name() ), e.parameters() );
   } catch ( Varlink::BadParameter const & bad ) {
      call->error( "org.varlink.service.InvalidParameter", { { "parameter", bad.name } } );
   } catch ( NamedError const & e ) {
      call->error( e.name, { { "message", e.message } } );
   }
}

void Api::clientGone( U64 client ) {
   watches_.clientGone( client );
   parts_.publications.clientGone( client );
}

void Api::dispatch( Call call ) {
   auto const & wanted = call->method();
   for ( auto const & method : methods ) {
      if ( wanted == method.name ) {
         require( call, method.right );
         return ( this->*method.run )( call );
      }
   }
   auto const interface = wanted.substr( 0, wanted.rfind( '.' ) );
   if ( interface == ownInterface || interface == serviceInterface ) {
      call->error( "org.varlink.service.MethodNotFound", { { "method", wanted } } );
   } else {
      call->error( "org.varlink.service.InterfaceNotFound", { { "interface", interface } } );
   }
}

void Api::require( Call call, Right right ) const {
   auto const & caller = call->caller();
   if ( parts_.access.of( caller ) < right ) {
      throw NamedError{ "org.varlink.service.PermissionDenied",
                        parts_.access.refusal( caller, call->method(), right ) };
   }
}

void Api::requireMore( Call call ) {
   if ( !call->more() ) {
      throw NamedError{ "org.varlink.service.ExpectedMore",
                        call->method() + " goes on: call it with \"more\"" };
   }
}

// Throws Refusal "NoSuchInterface".
Settings::InterfaceConfig const & Api::interface( std::string const & name ) const {
   auto const & interfaces = parts_.feeder.config().interfaces;
   auto const found = interfaces.find( name );
   if ( found == interfaces.end() ) {
      throw Errors::noSuchInterface( name );
   }
   return found->second;
}

void Api::getInfo( Call call ) {
   call->reply( { { "vendor", "Valen" },
                  { "product", "valend" },
                  { "version", version },
                  { "url", "" },
                  { "interfaces", { serviceInterface, ownInterface } } } );
}

void Api::getInterfaceDescription( Call call ) {
   auto const interface = requiredText( *call, "interface" );
   auto const * const text = interface == ownInterface       ? daemonDescription
                             : interface == serviceInterface ? serviceDescription
                                                             : nullptr;
   if ( text ) {
      call->reply( { { "description", text } } );
   } else {
      call->error( "org.varlink.service.InterfaceNotFound", { { "interface", interface } } );
   }
}

// --- Interfaces ----------------------------------------------------------------------------------

void Api::list( Call call ) {
   call->reply( { { "interfaces", links_.names( wantedOf( *call ) ) } } );
}

void Api::status( Call call ) {
   auto const & config = parts_.feeder.config();
   auto const wanted = optionalText( *call, "interface" );
   auto interfaces =
      wanted ? Json::array( { report_.interface( interface( *wanted ) ) } ) : report_.interfaces();
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

void Api::watchStatus( Call call ) {
   auto const wanted = optionalText( *call, "interface" );
   if ( wanted ) {
      interface( *wanted );
   }
   requireMore( call );
   watches_.watchStatus( call, wanted );
}

void Api::explain( Call call ) {
   auto const & config = interface( requiredText( *call, "interface" ) );
   auto const now = report_.interface( config );
   call->reply( { { "ready", now[ "ready" ] },
                  { "link", now[ "link" ] },
                  { "requirements", report_.requirements( config ) } } );
}

void Api::wait( Call call ) {
   using Until = WatchMethods::Until;
   static std::map< std::string, Until > const conditions{ { "ready", Until::ready },
                                                           { "up", Until::up },
                                                           { "down", Until::down },
                                                           { "idle", Until::idle } };
   auto const & config = interface( requiredText( *call, "interface" ) );
   auto const until = conditions.find( requiredText( *call, "until" ) );
   if ( until == conditions.end() ) {
      throw Varlink::BadParameter{ "until" };
   }
   auto const patience = optionalCount( *call, "timeoutMs" );
   watches_.wait( call, config.name, until->second,
                  patience ? std::optional( std::chrono::milliseconds(
                                std::min< U64 >( *patience, maxPatienceMs ) ) )
                           : std::nullopt );
}

void Api::shutdown( Call call ) {
   links_.shutdown( call, requiredText( *call, "interface" ) );
}

void Api::shutdownMany( Call call ) {
   links_.shutdownMany( call, wantedOf( *call ) );
}

void Api::enable( Call call ) {
   links_.enable( call, requiredText( *call, "interface" ) );
}

void Api::enableMany( Call call ) {
   links_.enableMany( call, wantedOf( *call ) );
}

void Api::history( Call call ) {
   auto const wanted = optionalText( *call, "interface" );
   auto list = Json::array();
   for ( auto const & record : parts_.controller.history() ) {
      if ( !wanted || record.interface == *wanted ) {
         list.push_back( StatusReport::record( record ) );
      }
   }
   call->reply( { { "shutdowns", std::move( list ) } } );
}

// --- Frames --------------------------------------------------------------------------------------

void Api::metrics( Call call ) {
   call->reply( { { "text", parts_.metrics.text() } } );
}

void Api::publish( Call call ) {
   using Lifetime = Publications::Lifetime;
   Publications::Message message{ requiredText( *call, "agent" ),
                                  requiredText( *call, "interface" ),
                                  {},
                                  Lifetime::kept,
                                  call->client() };
   for ( auto const & hex : requiredTexts( *call, "frames" ) ) {
      message.frames.push_back( Publications::frameOf( hex, message.frames.size() + 1 ) );
   }
   auto const lifetime = requiredText( *call, "lifetime" );
   if ( lifetime != "kept" && lifetime != "connection" ) {
      throw Varlink::BadParameter{ "lifetime" };
   }
   if ( lifetime == "connection" ) {
      message.lifetime = Lifetime::connection;
   }
   auto const name = message.interface;
   auto const agent = message.agent;
   parts_.publications.publish( std::move( message ) );
   call->neededIs( parts_.publications.isNeeded( call->client() ) );
   watches_.changed();
   call->reply( { { "tooLong", report_.tooLong( interface( name ), agent ) } } );
}

void Api::withdraw( Call call ) {
   parts_.publications.withdraw( requiredText( *call, "agent" ), requiredText( *call, "interface" ),
                                 call->client() );
   call->neededIs( parts_.publications.isNeeded( call->client() ) );
   watches_.changed();
   call->reply( Json::object() );
}

void Api::listMessages( Call call ) {
   auto const wanted = optionalText( *call, "interface" );
   if ( wanted ) {
      interface( *wanted );
   }
   auto list = report_.messages( parts_.publications );
   if ( wanted ) {
      std::erase_if( list.get_ref< Json::array_t & >(),
                     [ & ]( auto const & message ) { return message[ "interface" ] != *wanted; } );
   }
   call->reply( { { "messages", std::move( list ) } } );
}

// --- The agent itself ----------------------------------------------------------------------------

void Api::trace( Call call ) {
   auto const count = std::min< U64 >( optionalCount( *call, "lines" ).value_or( 100 ), 10'000 );
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

void Api::traceLevels( Call call ) {
   if ( auto const levels = optionalText( *call, "levels" ) ) {
      require( call, Right::change );
      try {
         Quill::traceLevelsIs( *levels );
      } catch ( Quill::RangeException const & e ) {
         throw Errors::badTraceLevels( e.what() );
      }
   }
   call->reply( { { "levels", Quill::traceLevels() } } );
}

void Api::show( Call call ) {
   auto const path = requiredText( *call, "path" );
   auto value = showPath( *parts_.store.entityManager, path );
   if ( !value ) {
      throw Errors::noSuchPath( path );
   }
   call->reply( { { "value", std::move( *value ) } } );
}

void Api::watch( Call call ) {
   requireMore( call );
   watches_.watch( call, requiredText( *call, "path" ) );
}

void Api::reload( Call call ) {
   call->reply( { { "changed", parts_.configurator.reload() } } );
}

void Api::config( Call call ) {
   call->reply( configurationJson( parts_.configurator.active() ) );
}

} // namespace Valend
