// The control API's methods around the agent's parts, on a kernel and a clock turned by hand.
#pragma once

#include "tests/valend/DaemonFixture.h"
#include "valend/api/Api.h"

namespace Valend::Test {

// The answers that one call got.
class Answers final : public Varlink::Replies {
 public:
   void send( Json const & message, bool isLast ) override {
      messages.push_back( message );
      last = isLast;
   }
   std::size_t waiting() const noexcept override { return untaken; }
   void neededIs( bool isNeeded ) noexcept override { needed = isNeeded; }

   Json const & parameters( std::size_t i = 0 ) const { return messages.at( i )[ "parameters" ]; }
   // "NAME: message" of an error that is the last answer.
   std::string error() const {
      auto const & message = messages.back();
      return message.value( "error", "none" ) + ": " +
             message[ "parameters" ].value( "message", message[ "parameters" ].dump() );
   }

   std::vector< Json > messages;
   bool last = false;
   bool needed = false;
   std::size_t untaken = 0; // bytes that the client leaves lying
};

class ApiFixture : public DaemonFixture {
 protected:
   ApiFixture()
       : trace( work, Settings::ProcessConfig(), false ), publications( feeder ),
         api( { store, feeder, publications, kernel, controller, faults, conditions, metrics, trace,
                configurator, access, clock.scheduler(), work } ) {}

   void startPublishing( Settings::Config const & config ) {
      start( Settings::Config() );
      publications.configIs( config );
      turn();
   }

   // Calls a method of org.valen.daemon as root.
   std::shared_ptr< Answers > call( std::string const & method, Json const & parameters,
                                    bool more = false, U64 client = 1 ) {
      return callAs( { 0, 1, { 0 } }, "org.valen.daemon." + method, parameters, more, client );
   }
   std::shared_ptr< Answers > callAs( Varlink::Caller const & caller, std::string const & method,
                                      Json const & parameters, bool more = false, U64 client = 1 ) {
      auto const answers = std::make_shared< Answers >();
      api.call(
         std::make_shared< Varlink::Call >( method, parameters, more, caller, client, answers ) );
      turn();
      return answers;
   }

   TraceHub trace;
   Access access{ "4001", "4002" };
   Metrics metrics{ { store, feeder, kernel, controller, faults, conditions,
                      [] { return Metrics::Clients(); } } };
   Publications publications;
   Configurator configurator{
      "/dev/null", Settings::ProcessConfig(),
      [ this ]( auto const & config ) { publications.configIs( config ); } };
   Api api;
};

} // namespace Valend::Test
