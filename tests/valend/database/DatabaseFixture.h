// The daemon's parts on a fake kernel and a stepped clock, with a real server.
#pragma once

#include "database/Connection.h"
#include "linux/EventLoop.h"
#include "tests/support/RedisServer.h"
#include "tests/valend/DaemonFixture.h"

#include <functional>
#include <sstream>

namespace Valend::Test {

using Valen::Test::RedisServer;

class DatabaseFixture : public DaemonFixture {
 protected:
   // Runs both loops, and the clock a millisecond at a time, until `condition` holds. Returns whether it does in time.
   bool eventually( std::function< bool() > const & condition ) {
      auto const end = std::chrono::steady_clock::now() + 20s;
      while ( !condition() ) {
         if ( std::chrono::steady_clock::now() > end ) {
            return false;
         }
         step();
      }
      return true;
   }
   void step() {
      loop.turn( 1ms );
      advance( 1ms );
   }
   void stepFor( std::chrono::milliseconds time ) {
      for ( ; time.count() > 0; time -= 1ms ) {
         step();
      }
   }
   std::string field( std::string const & name, std::string const & field ) const {
      return server( { "HGET", "valen:rtr1:" + name, field } );
   }
   bool becomes( std::string const & name, std::string const & field, std::string const & value ) {
      return eventually( [ & ] { return this->field( name, field ) == value; } );
   }

   RedisServer server;
   Valen::Linux::EventLoop loop{ clock.scheduler() };
};

} // namespace Valend::Test
