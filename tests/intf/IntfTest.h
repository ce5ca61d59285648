// The fixture of the interface reactors: one interface with everything that they need.
#pragma once

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/RecordingRawTxPam.h"
#include "tests/support/SteppedClock.h"
#include "tests/support/TraceCapture.h"

#include "types/ValenTypes.h"

#include <gmock/gmock.h>

#include <cstdio>

namespace Valen::Test {

using Device = Interface::DeviceIntfStatusDir::IntfStatusAndDeviceName;
using Texts = std::vector< std::string >;

// Writes every trace line to standard error, where a death test looks.
class TraceToStderr final : public Quill::TraceSink {
 public:
   TraceToStderr() : oldSink_( Quill::traceSinkIs( this ) ) {}
   ~TraceToStderr() override { Quill::traceSinkIs( oldSink_ ); }
   TraceToStderr( TraceToStderr const & ) = delete;
   TraceToStderr & operator=( TraceToStderr const & ) = delete;

   void line( Quill::TraceLine const & line ) noexcept override {
      std::fprintf( stderr, "%.*s\n", static_cast< int >( line.text.size() ), line.text.data() );
   }

 private:
   Quill::TraceSink * const oldSink_;
};

// Matches a death whose assertion is exactly `expression`.
inline auto assertion( std::string const & expression ) {
   return ::testing::HasSubstr( "assertion failed: " + expression + " at " );
}

class IntfTest : public ::testing::Test {
 protected:
   explicit IntfTest( char const * name = "Ethernet1" )
       : message( Quill::make< IntfMessage >( name ) ),
         intf( Quill::make< Intf >( name, message ) ), intfConfig( newIntfConfig( name ) ),
         rawTxPam( pams.newRawTxPam( "RawTxPam" ) ) {
      globalConfig->shutdownDelayMsIs( 2000 );
      configDir->globalConfigIs( globalConfig );
      intf->l3IntfStatusIs( Quill::make< L3::Intf::Status >( name ) );
      rawTxPam->netNsIs( "ns-red" );
   }

   static Quill::Ptr< Interface::IntfConfig > newIntfConfig( char const * name ) {
      auto const config = Quill::make< Interface::IntfConfig >( name );
      config->adminShutdownDelaySupportedIs( true );
      config->adminShutdownDelayableIs( true );
      return config;
   }

   void deviceIs( char const * deviceName, U32 ifIndex ) {
      intf->deviceIs( { nullptr, deviceName, ifIndex } );
   }
   // The agent queues these frames for the interface.
   void queue( char const * agent, std::vector< Quill::String > const & texts ) {
      auto const queued = Quill::make< Config::Agent::Message >( intf->intfId() );
      for ( auto const & text : texts ) {
         queued->messageEnq( text );
      }
      message->messageIs( agent, queued );
   }
   void shutdown() { intfConfig->adminShutdownDelayedIs( true ); }
   void reenable() { intfConfig->adminShutdownDelayedIs( false ); }

   Texts sentTexts() const {
      Texts texts;
      for ( auto const & packet : pams.packets ) {
         texts.push_back( packet.bytes );
      }
      return texts;
   }

   LeakCheck leakCheck; // first: it looks last
   TraceCapture trace;
   SteppedClock clock;
   RecordingRawTxPams pams;
   Quill::Ptr< Config::GlobalConfig > globalConfig = Quill::make< Config::GlobalConfig >();
   Quill::Ptr< Config::ConfigDir > configDir = Quill::make< Config::ConfigDir >();
   Quill::Ptr< Status::StatusDir > statusDir = Quill::make< Status::StatusDir >();
   Quill::Ptr< IntfMessage > message;
   Quill::Ptr< Intf > intf;
   Quill::Ptr< Interface::IntfConfig > intfConfig;
   Quill::Ptr< Corvid::RawTxPam > rawTxPam;
};

} // namespace Valen::Test
