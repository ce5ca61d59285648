// The control API's methods around the daemon's parts, on a fake kernel and a stepped clock.
#pragma once

#include "tests/valend/DaemonFixture.h"
#include "valend/api/Api.h"
#include "valend/api/DescriptionTexts.h"

namespace Valend::Test {

// What the methods answer must match the API's description.
inline Varlink::Description const & described() {
   static Varlink::Description const description( daemonDescription );
   return description;
}

// The answers to one call.
class Answers final : public Varlink::Replies {
 public:
   // `method` is qualified.
   explicit Answers( std::string const & method ) {
      auto const & methods = described().methods();
      auto const found = methods.find( method.substr( method.rfind( '.' ) + 1 ) );
      type_ = found == methods.end() ? nullptr : &found->second.answer;
   }

   void send( Varlink::Encoded encoded ) override {
      auto const message = Json::parse( encoded->substr( 0, encoded->size() - 1 ) );
      sent.push_back( std::move( encoded ) );
      messages.push_back( message );
      if ( message.contains( "error" ) ) {
         expectDescribedError( message );
      } else if ( type_ ) {
         auto const wrong = described().mismatch( message[ "parameters" ], *type_ );
         EXPECT_EQ( wrong, std::nullopt ) << message;
      }
   }
   void finished() override { last = true; }
   std::size_t waiting() const noexcept override { return untaken; }
   bool mayLast() const override { return roomToLast; }
   void lasts() noexcept override { lasting = true; }
   void neededIs( bool isNeeded ) noexcept override { needed = isNeeded; }

   Json const & parameters( std::size_t i = 0 ) const { return messages.at( i )[ "parameters" ]; }
   // "NAME: message" of an error that is the last answer.
   std::string error() const {
      auto const & message = messages.back();
      return message.value( "error", "none" ) + ": " +
             message[ "parameters" ].value( "message", message[ "parameters" ].dump() );
   }

   std::vector< Json > messages;
   std::vector< Varlink::Encoded > sent; // the same
   bool last = false;
   bool needed = false;
   bool lasting = false;
   bool roomToLast = true;
   std::size_t untaken = 0; // bytes that the client does not take

 private:
   static void expectDescribedError( Json const & message ) {
      auto const name = message[ "error" ].get< std::string >();
      auto const prefix = described().name() + ".";
      if ( name.starts_with( prefix ) ) {
         auto const found = described().errors().find( name.substr( prefix.size() ) );
         ASSERT_NE( found, described().errors().end() ) << name;
         EXPECT_EQ( described().mismatch( message[ "parameters" ], found->second ), std::nullopt )
            << message;
      }
   }

   Varlink::Type const * type_; // null for a method that is not the daemon's
};

class ApiFixture : public DaemonFixture {
 protected:
   ApiFixture()
       : trace( work, Settings::ProcessConfig(), TraceHub::WithoutFile::nowhere ),
         publications( feeder, work, clock.scheduler() ),
         api( { store, feeder, publications, kernel, controller, faults, conditions, metrics,
                speakersReport, trace, configurator, access, clock.scheduler(), work,
                [ this ]( auto const & done ) { reload( done ); },
                [ this ]( auto const & done ) { whenSaved( done ); }, [ this ] { ++rescans; } } ) {}

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
      auto const answers = std::make_shared< Answers >( method );
      auto const wanted = more ? Varlink::Wanted::many : Varlink::Wanted::one;
      api.call(
         std::make_shared< Varlink::Call >( method, parameters, wanted, caller, client, answers ) );
      turn();
      return answers;
   }

   // What Reload does, and how often Rescan was called.
   std::function< void( std::function< void( Reloaded const & ) > const & ) > reload =
      []( auto const & done ) { done( {} ); };
   int rescans = 0;
   // What an answer of Publish and Withdraw waits for.
   std::function< void( std::function< void( bool ) > const & ) > whenSaved =
      []( auto const & done ) { done( true ); };

   TraceHub trace;
   Access access{ "4001", "4002" };
   SpeakerTable table;
   Metrics metrics{ { store, feeder, kernel, controller, faults, conditions, table,
                      [] { return Egress::Lost(); }, [] { return Metrics::Clients(); },
                      [] { return U64( 0 ); }, [] { return U64( 0 ); },
                      [] { return std::nullopt; } } };
   Publications publications;
   LearnedFrames learned{ feeder.config(), publications, table,
                          conditions,      work,         clock.scheduler() };
   std::string notMuted; // why
   SpeakersReport speakersReport{ { feeder.config(), table, learned,
                                    [ this ]( auto const & ) { return notMuted; },
                                    clock.scheduler() } };
   Valen::Linux::EventLoop loop{ clock.scheduler() }; // is not turned
   Configurator configurator{ "/dev/null", Settings::ProcessConfig(), conditions, loop,
                              []( auto const & ) { return Configurator::Steps(); } };
   Api api;
};

} // namespace Valend::Test
