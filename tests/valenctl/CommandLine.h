// valenctl's commands as the operator types them, against a server that answers as valend would.
#pragma once

#include "tests/valenctl/FakeDaemon.h"
#include "valenctl/Commands.h"

#include <gmock/gmock.h>
#include <sstream>

namespace Valenctl::Test {

using Words = std::vector< std::string >;

class CommandLine : public ::testing::Test {
 protected:
   // Runs valenctl with these arguments, and --socket before them.
   Exit run( Words words ) {
      words.insert( words.begin(), { "valenctl", "--socket", daemon.path() } );
      return runAlone( words );
   }
   // Runs it with these alone; the first is the program's name.
   Exit runAlone( Words const & words ) {
      std::vector< char const * > argv;
      for ( auto const & word : words ) {
         argv.push_back( word.c_str() );
      }
      std::ostringstream outStream;
      std::ostringstream errStream;
      auto const exit = Commands().run( static_cast< int >( argv.size() ), argv.data(), terminal,
                                        outStream, errStream );
      out = outStream.str();
      err = errStream.str();
      return exit;
   }
   // The parameters of the only call that was made; its method is checked.
   Json onlyCall( std::string const & method ) const {
      auto const calls = daemon.calls();
      EXPECT_EQ( calls.size(), 1u );
      EXPECT_EQ( calls.at( 0 ).method, method );
      return calls.at( 0 ).parameters;
   }

   FakeDaemon daemon;
   Terminal terminal;
   std::string out;
   std::string err;
};

} // namespace Valenctl::Test
