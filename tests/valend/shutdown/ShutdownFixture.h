// Shutdowns of two interfaces, with the steps that their observers are told.
#pragma once

#include "tests/support/WorkDirectory.h"
#include "tests/valend/DaemonFixture.h"

namespace Valend::Test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Ending = ShutdownRecord::Ending;

class ShutdownFixture : public DaemonFixture {
 protected:
   explicit ShutdownFixture( std::string const & stateDirectory = "" )
       : DaemonFixture( stateDirectory ) {
      start( twoInterfaces() );
   }

   // Requests a shutdown, and adds its steps to `steps`.
   void shutdown( std::string const & interface, std::string const & by = "root" ) {
      controller.shutdown( interface, { by }, [ this ]( auto step, auto const & record ) {
         steps.push_back( step == ShutdownStep::sent       ? "sent"
                          : step == ShutdownStep::delayed  ? "delayed"
                          : step == ShutdownStep::retrying ? "retrying: " + record.why
                                                           : record.endingText() );
      } );
      turn();
   }
   ShutdownRecord const & last() const { return controller.history().back(); }
   // Whether the library is asked to delay the shutdown.
   bool flag( std::string const & interface ) const {
      return store.allIntfConfigDir->intfConfig( interface )->adminShutdownDelayed();
   }

   std::vector< std::string > steps;
};

// The directory of a test, which is there before the parts that use it.
struct TestFiles {
   Valen::Test::WorkDirectory const files;
};

// The same, recorded in the file "shutdowns".
class JournaledFixture : protected TestFiles, public ShutdownFixture {
 protected:
   JournaledFixture() : ShutdownFixture( files / "" ) { controller.resume( recover( journal ) ); }
};

} // namespace Valend::Test
