// The layer of a database over files, with what applies it: the Configurator, with a thread of its own, and publications
// on a fake kernel.
#pragma once

#include "settings/ConfigWriter.h"
#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"
#include "valend/configuration/DatabaseLayer.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Valend::Test {

using Settings::Fields;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class DatabaseLayerFixture : public DaemonFixture {
 protected:
   using Lines = std::vector< std::string >;

   DatabaseLayerFixture() {
      kernel.netNsIs( "ns-red", "1:2" );
      kernel.deviceIs( "default", "et1", 7 );
      files.write( "valen.yaml", "" );
      files.directory( "state" );
   }
   ~DatabaseLayerFixture() override { stop(); }

   // Starts with these files, and with what was kept.
   void start( std::string const & text ) {
      files.write( "valen.yaml", text );
      state.emplace( files / "state", []( auto const & ) {} );
      worker.emplace( *loop, "test" );
      publications.emplace( feeder, loop->workQueue(), clock.scheduler() );
      configurator.emplace( files / "valen.yaml", Settings::ProcessConfig(), conditions, *loop,
                            [ this ]( auto const & plan ) { return stepsTo( plan ); } );
      file.emplace( *state, conditions, *worker, clock.scheduler() );
      layer.emplace( *configurator, *publications, *file, loop->workQueue(), clock.scheduler() );
      layer->rejectedIs( [ this ]( auto const & key, auto const & why ) {
         told.push_back( key + ": " + why );
         if ( why.empty() ) {
            rejected.erase( key );
         } else {
            rejected[ key ] = why;
         }
      } );
      layer->leaseWantedIs( [ this ]( auto const & key, bool wanted ) {
         leases.push_back( ( wanted ? "+" : "-" ) + key );
      } );
      layer->settledIs( [ this ] { ++settled; } );
      layer->changedIs( [ this ]( auto const & lines ) {
         changed.insert( changed.end(), lines.begin(), lines.end() );
      } );
      layer->resume( "server prefix" );
      configurator->start( Settings::readConfig( files / "valen.yaml" ) );
   }
   // What is left to be written is written.
   void stop() {
      layer.reset();
      file.reset();
      configurator.reset();
      publications.reset();
      worker.reset();
      state.reset();
   }
   Configurator::Steps stepsTo( PlanPtr const & plan ) {
      ++applications;
      return { [ this, plan ] {
                 publications->begin( plan );
                 return false;
              },
               [ this ] { return feeder.step(); }, layer->configChangedStep() };
   }

   // Turns the loop, and lets time pass, until `condition`.
   void until( std::function< bool() > const & condition ) {
      auto const end = std::chrono::steady_clock::now() + 30s;
      while ( !condition() ) {
         ASSERT_LT( std::chrono::steady_clock::now(), end );
         oneTurn();
      }
   }
   void oneTurn() {
      loop->turn( 1ms );
      clock.advance( 1ms );
      DaemonFixture::turn();
   }
   void settle() {
      until( [ & ] { return layer->settled(); } );
      for ( int i = 0; i < 10; ++i ) { // what is posted may have to be settled as well
         oneTurn();
      }
      until( [ & ] { return layer->settled(); } );
   }
   void reload() {
      ::testing::internal::CaptureStderr();
      bool done = false;
      configurator->reload( [ & ]( auto const & ) { done = true; } );
      until( [ & ] { return done; } );
      ::testing::internal::GetCapturedStderr();
   }
   std::string active() const { return Settings::yamlOf( feeder.config() ); }
   static std::string yaml( std::string const & text ) {
      auto const read = Settings::parseConfig( text, "f" );
      EXPECT_TRUE( read.errors.empty() );
      return Settings::yamlOf( read.config );
   }
   // The last bytes of the frames that are applied, in order of agents.
   std::string inForce( std::string const & interface ) const {
      std::string last;
      for ( auto const & [ agent, frames ] : feeder.config().agents ) {
         auto const own = frames.find( interface );
         for ( auto const & frame : own == frames.end() ? Settings::Frames() : own->second ) {
            last += frame.back();
         }
      }
      return last;
   }
   static Fields framesOf( std::string const & last ) {
      Fields fields;
      for ( auto const character : last ) {
         fields[ "000" + std::to_string( fields.size() + 1 ) ] = frame( character );
      }
      return fields;
   }

   Valen::Test::WorkDirectory const files;
   std::optional< Valen::Linux::EventLoop > loop{ std::in_place, clock.scheduler() };
   std::optional< StateDirectory > state;
   std::optional< Valen::Linux::Worker > worker;
   std::optional< Publications > publications;
   std::optional< Configurator > configurator;
   std::optional< DatabaseFile > file;
   std::optional< DatabaseLayer > layer;
   std::map< std::string, std::string > rejected;
   Lines told, leases, changed;
   int applications = 0, settled = 0;
};

} // namespace Valend::Test
