// After a crash valend continues the shutdowns of the previous run. Each run has its own store, library
// and clock; only the journal is common to them.
#pragma once

#include "tests/valend/shutdown/ShutdownFixture.h"

namespace Valend::Test {

// One run of valend. Its end is a crash: the journal is left as it is.
class DaemonRun final : public DaemonFixture {
 public:
   // `uptime`: how long after the first run this one starts.
   DaemonRun( std::string const & directory, std::chrono::milliseconds uptime )
       : DaemonFixture( directory ) {
      clock.advance( uptime );
   }
   void TestBody() override {}

   // Starts with two interfaces and resumes what was running.
   void startAndResume( Settings::Config const & config = twoInterfaces() ) {
      start( config );
      controller.resume( recover( journal ) );
      turn();
   }
   ShutdownRecord const & last() const { return controller.history().back(); }

   using DaemonFixture::advance;
   using DaemonFixture::clock;
   using DaemonFixture::conditions;
   using DaemonFixture::controller;
   using DaemonFixture::delayed;
   using DaemonFixture::enable;
   using DaemonFixture::enabling;
   using DaemonFixture::feeder;
   using DaemonFixture::journal;
   using DaemonFixture::kernel;
   using DaemonFixture::libraryStart;
   using DaemonFixture::sent;
   using DaemonFixture::sentFrames;
   using DaemonFixture::speakers;
   using DaemonFixture::start;
   using DaemonFixture::turn;
   using DaemonFixture::twoInterfaces;
};

class ResumeFixture : public ::testing::Test {
 protected:
   // The first run shuts Ethernet1 down and crashes `into` that.
   void crash( std::chrono::milliseconds into ) {
      DaemonRun run( directory, 0ms );
      run.startAndResume();
      run.controller.shutdown( "Ethernet1", { "root" }, nullptr );
      run.advance( into );
   }
   // Cuts the journal back to its first `count` lines.
   void keepLines( std::size_t count ) {
      auto const content = work.content( "shutdowns" );
      std::size_t end = content.find( '\n' ) + 1; // the header
      for ( std::size_t i = 0; i < count; ++i ) {
         end = content.find( '\n', end ) + 1;
      }
      work.write( "shutdowns", content.substr( 0, end ) );
   }
   // The first run, in a new journal, crashes when it has written `count` lines of a whole shutdown, whose frames
   // leave the socket late.
   void crashAfterLine( std::size_t count ) {
      work.remove( "shutdowns" );
      {
         DaemonRun run( directory, 0ms );
         run.startAndResume();
         run.controller.shutdown( "Ethernet1", { "root" }, nullptr );
         run.kernel.outstanding = 100;
         run.advance( 510ms );
         run.kernel.outstanding = 0;
         run.advance( 90ms );
      }
      keepLines( count );
   }

   Valen::Test::WorkDirectory work;
   std::string const directory = work / "";
};

// Those of a whole shutdown: requested, sending, held, flushing, setting-down, ended.
inline constexpr std::size_t wholeLines = 6;

} // namespace Valend::Test
