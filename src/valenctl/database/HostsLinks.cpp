// Shutting interfaces of many hosts down, and enabling them.
#include "settings/Counted.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/ShutdownText.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <pwd.h>
#include <unistd.h>

namespace Valenctl {

namespace {

using State = LinkRequest::State;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenPolls{ 50 };
constexpr std::size_t progressWidth = 78;

// Who asks, for the histories of the hosts: the operator behind sudo, else the user.
std::string requester() {
   auto const * const sudoer = std::getenv( "SUDO_USER" );
   auto const * const user = ::getpwuid( ::getuid() );
   return sudoer && *sudoer ? sudoer : user ? user->pw_name : std::to_string( ::getuid() );
}

std::string nameOf( LinkRequest const & request ) {
   return request.host->name + " " + request.interface;
}

Json endedStep( LinkRequest const & request ) {
   auto record = request.record;
   record[ "host" ] = request.host->name;
   return { { "step", "ended" }, { "shutdown", record } };
}

bool succeeded( LinkRequest const & request, LinkOrder const & order ) {
   if ( order.up ) {
      return request.result == "up" || request.result == "already-up" ||
             request.result == "aborted";
   }
   if ( !request.record.is_null() ) {
      return stepSucceeded( endedStep( request ) );
   }
   return request.state == State::running || request.result == "down" ||
          request.result == "already-down";
}

// What became of a request: "rtr1 Ethernet1: held for 300 ms".
std::string requestText( LinkRequest const & request, LinkOrder const & order ) {
   auto const name = nameOf( request ) + ": ";
   if ( request.state == State::written ) {
      return name + "not acted on; the request stands";
   }
   if ( request.state == State::replaced ) {
      return name + "another request took its place before valend acted on it";
   }
   if ( request.state == State::running ) {
      return name + ( request.heldUntil.count()
                         ? "held for " + std::to_string( msUntil( request.heldUntil ) ) + " ms"
                         : "shutting down" );
   }
   if ( !request.record.is_null() ) {
      return stepText( endedStep( request ) );
   }
   if ( order.up && succeeded( request, order ) ) {
      return enableText( { { "host", request.host->name },
                           { "interface", request.interface },
                           { "result", request.result } } );
   }
   if ( request.result == "down" ) {
      return name + "link down";
   }
   return name +
          ( request.result.empty() ? "ended; a later request is carried out" : request.result );
}

class LinkFollower {
 public:
   LinkFollower( HostSession const & session, std::vector< Host > const & hosts,
                 std::vector< Chosen > const & chosen, LinkOrder const & order, bool quiet )
       : client_( session.client ), output_( session.output ), hosts_( hosts ), order_( order ),
         quiet_( quiet ), requests_( client_, chosen, order, requester() ) {}

   Exit run() {
      try {
         requests_.write();
         follow();
      } catch ( Interrupted const & ) {
         clearProgress();
         output_.err << "valenctl: interrupted; " << standingText() << '\n';
         exit_ = std::max( exit_, Exit::failed );
      }
      for ( auto const & request : requests_.requests() ) {
         if ( request.state == State::written ) { // what is held was said when it began
            print( request );
         }
      }
      if ( output_.json() ) {
         output_.out << indented( document() ) << '\n';
      }
      return exit_;
   }

 private:
   void follow() {
      while ( requests_.pending() ) {
         try {
            requests_.poll( [ this ]( LinkRequest const & request ) {
               changed_ = Clock::now();
               print( request );
            } );
            databaseIs( "" );
         } catch ( NoDatabase const & e ) {
            databaseIs( e.what() );
         }
         showProgress();
         if ( requests_.pending() && isLate() ) {
            clearProgress();
            exit_ = std::max( exit_, Exit::timedOut );
            output_.err << "valenctl: timed out; " << standingText() << '\n';
            break;
         }
         if ( requests_.pending() ) {
            client_.pause( betweenPolls );
         }
      }
      clearProgress();
   }

   // Whether nothing has changed for too long, apart from links that are held.
   bool isLate() const {
      auto const timeout = client_.timeout();
      auto const sinceHeld =
         std::chrono::system_clock::now().time_since_epoch() - requests_.heldUntil();
      return timeout.count() && Clock::now() - changed_ > timeout && sinceHeld > timeout;
   }

   void databaseIs( std::string const & problem ) {
      if ( problem != problem_ ) {
         clearProgress();
         output_.err << "valenctl: "
                     << ( problem.empty() ? "the database answers again"
                                          : problem + "; the requests stand, trying again" )
                     << std::endl;
      }
      problem_ = problem;
   }

   void print( LinkRequest const & request ) {
      bool const failed = !succeeded( request, order_ );
      if ( failed && request.done ) {
         exit_ = std::max( exit_, Exit::failed );
      }
      if ( failed || ( !quiet_ && !output_.json() ) ) {
         clearProgress();
         output_.err << ( failed ? "valenctl: " : "" ) << requestText( request, order_ )
                     << std::endl;
      }
   }

   // What still stands, and how to revoke it.
   std::string standingText() const {
      std::string names;
      for ( auto const & host : hosts_ ) {
         bool const waits = std::any_of(
            requests_.requests().begin(), requests_.requests().end(),
            [ & ]( LinkRequest const & each ) { return !each.done && each.host == &host; } );
         names += waits ? ( names.empty() ? "" : "," ) + host.name : "";
      }
      auto const what = "the requests stand (" +
                        Settings::counted( requests_.pending(), "interface" ) +
                        ( order_.up ? " not enabled yet on " : " not down yet on " ) + names + ")";
      return order_.up ? what
                       : what + "; \"valenctl --database '" + client_.url() + "' --host " + names +
                            " enable INTERFACE\" revokes them";
   }

   // One line that the next output overwrites: "done: rtr1 2/3 rtr2 0/3".
   void showProgress() {
      if ( !output_.terminal.err || output_.json() || quiet_ || !requests_.pending() ) {
         return;
      }
      std::string text = order_.up ? "enabled:" : "done:";
      for ( auto const & host : hosts_ ) {
         std::size_t all = 0, done = 0;
         for ( auto const & request : requests_.requests() ) {
            all += request.host == &host;
            done += request.host == &host && request.done;
         }
         if ( all ) {
            text += " " + host.name + " " + std::to_string( done ) + "/" + std::to_string( all );
         }
      }
      if ( text.size() > progressWidth ) {
         text = text.substr( 0, progressWidth - 3 ) + "...";
      }
      if ( text != progress_ ) {
         clearProgress();
         output_.err << text << std::flush;
         progress_ = text;
      }
   }

   void clearProgress() {
      if ( !progress_.empty() ) {
         output_.err << "\r\x1b[K";
         progress_.clear();
      }
   }

   Json document() const {
      auto documents = Json::array();
      for ( auto const & host : hosts_ ) {
         auto results = Json::array();
         for ( auto const & request : requests_.requests() ) {
            if ( request.host == &host ) {
               results.push_back( documentOf( request ) );
            }
         }
         documents.push_back(
            { { "host", host.name }, { "stale", host.stale }, { "results", results } } );
      }
      return { { "hosts", documents } };
   }

   static Json documentOf( LinkRequest const & request ) {
      auto const result = request.state == State::written    ? "unanswered"
                          : request.state == State::replaced ? "replaced"
                          : request.state == State::running  ? "running"
                                                             : request.result;
      return { { "interface", request.interface },
               { "id", request.id },
               { "result", result },
               { "shutdown", request.record } };
   }

   DatabaseClient & client_;
   Output const & output_;
   std::vector< Host > const & hosts_;
   LinkOrder const & order_;
   bool const quiet_;
   LinkRequests requests_;
   Exit exit_ = Exit::done;
   Clock::time_point changed_ = Clock::now(); // a request
   std::string problem_;                      // why the database does not answer
   std::string progress_;                     // what is shown of it
};

} // namespace

Exit requestLinks( HostSession const & session, Json const & selection, LinkOrder const & order,
                   bool quiet ) {
   auto hosts = findHosts( session.client, session.hosts );
   readInterfaces( session.client, hosts );
   auto const chosen = choose( hosts, selection );
   auto const stale = reportStale( session.output, hosts );
   return std::max( stale, LinkFollower( session, hosts, chosen, order, quiet ).run() );
}

} // namespace Valenctl
