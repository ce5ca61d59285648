// The status of many hosts whenever it changes: a table that is redrawn on a terminal; one line for each change
// otherwise.
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/StatusText.h"
#include "valenctl/text/TimeText.h"

#include <algorithm>
#include <ostream>

namespace Valenctl {

namespace {

using Clock = std::chrono::steady_clock;

// A database of thousands of interfaces is not read all the time.
constexpr std::chrono::milliseconds betweenReads{ 500 };
constexpr int restForReading = 4; // times as long as the last reading took

std::string nowText() {
   auto const now = std::chrono::system_clock::now().time_since_epoch();
   return timeText( std::chrono::floor< std::chrono::milliseconds >( now ) );
}

class HostsWatch {
 public:
   HostsWatch( Output const & output, std::string interface )
       : output_( output ), interface_( std::move( interface ) ) {}

   // Prints what differs from what was taken before.
   void take( std::vector< Host > hosts ) {
      for ( auto & host : hosts ) {
         std::erase_if( host.interfaces, [ & ]( auto const & each ) {
            return !interface_.empty() && each.first != interface_;
         } );
         noteStale( host );
         printHost( host );
      }
      if ( output_.terminal.out && !output_.json() ) {
         draw( hosts );
      }
      for ( auto & host : hosts ) {
         known_[ host.name ] = std::move( host );
      }
   }

   // The database has not answered.
   void databaseIs( std::string const & problem ) {
      if ( problem != problem_ ) {
         output_.err << "valenctl: " << ( problem.empty() ? "the database answers again" : problem )
                     << std::endl;
      }
      problem_ = problem;
   }

 private:
   void noteStale( Host const & host ) {
      if ( host.stale ) {
         staleSince_.try_emplace( host.name, Clock::now() );
      } else {
         staleSince_.erase( host.name );
      }
   }

   // "stale", with the time for which it is known to be.
   std::string stateText( Host const & host ) const {
      auto const since = staleSince_.find( host.name );
      if ( since == staleSince_.end() ) {
         return "alive";
      }
      auto const age =
         std::chrono::floor< std::chrono::milliseconds >( Clock::now() - since->second );
      return age < std::chrono::seconds( 1 ) ? "stale" : "stale for " + durationText( age );
   }

   void printHost( Host const & host ) {
      auto const known = known_.find( host.name );
      bool const isNew = known == known_.end();
      auto changed = Json::array(), gone = Json::array();
      if ( isNew ? host.stale : host.stale != known->second.stale ) {
         printLine( host.name + ": " + stateText( host ) );
      }
      for ( auto const & [ name, interface ] : host.interfaces ) {
         auto const text = interfaceText( interface.interface );
         auto const before = isNew ? host.interfaces.end() : known->second.interfaces.find( name );
         if ( isNew || before == known->second.interfaces.end() ||
              interfaceText( before->second.interface ) != text ) {
            printLine( host.name + " " + name + ": " + text );
            changed.push_back( interface.interface );
         }
      }
      if ( !isNew ) {
         for ( auto const & each : known->second.interfaces ) {
            if ( !host.interfaces.contains( each.first ) ) {
               printLine( host.name + " " + each.first + ": removed from the configuration" );
               gone.push_back( each.first );
            }
         }
      }
      if ( output_.json() &&
           ( isNew || host.stale != known->second.stale || !changed.empty() || !gone.empty() ) ) {
         output_.out << oneLine( { { "host", host.name },
                                   { "stale", host.stale },
                                   { "interfaces", changed },
                                   { "gone", gone } } )
                     << std::endl;
      }
   }

   void printLine( std::string const & text ) const {
      if ( !output_.terminal.out && !output_.json() ) {
         output_.out << nowText() << " " << text << std::endl;
      }
   }

   void draw( std::vector< Host > const & hosts ) const {
      auto documents = Json::array();
      for ( auto const & host : hosts ) {
         auto document = documentOf( host );
         document[ "state" ] = stateText( host );
         document[ "interfaces" ] = Json::array();
         for ( auto const & each : host.interfaces ) {
            document[ "interfaces" ].push_back( each.second.interface );
         }
         documents.push_back( std::move( document ) );
      }
      output_.out << "\x1b[H\x1b[J"
                  << hostsText( { { "hosts", documents } }, output_.terminal.palette )
                  << std::flush;
   }

   Output const & output_;
   std::string const interface_; // empty: all
   std::map< std::string, Host > known_;
   std::map< std::string, Clock::time_point > staleSince_;
   std::string problem_;
};

std::vector< Host > readHosts( HostSession const & session ) {
   auto hosts = findHosts( session.client, session.hosts );
   readInterfaces( session.client, hosts );
   return hosts;
}

} // namespace

Exit watchHosts( HostSession const & session, std::string const & interface ) {
   HostsWatch watch( session.output, interface );
   watch.take( readHosts( session ) ); // a database that does not answer now is an error
   try {
      while ( session.output.out.good() ) {
         auto const begin = Clock::now();
         try {
            watch.take( readHosts( session ) );
            watch.databaseIs( "" );
         } catch ( NoDatabase const & e ) {
            watch.databaseIs( e.what() );
         } catch (
            NoSuchHost const & e ) { // the server has lost everything, and the daemons come back
            watch.databaseIs( e.what() );
         }
         auto const took = std::chrono::ceil< std::chrono::milliseconds >( Clock::now() - begin );
         session.client.pause( std::max( betweenReads, restForReading * took ) );
      }
   } catch ( Interrupted const & ) {
   }
   return Exit::done;
}

} // namespace Valenctl
