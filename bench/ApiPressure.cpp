// The clients of bench/api_pressure, each part in a process of its own, so that they take as little of the
// machine as they can.
//   api_pressure watch SOCKET INTERFACES CLIENTS FOLLOWERS
//                                                   reads the answers of CLIENTS each that call Watch, WatchStatus and
//                                                   Wait, and of FOLLOWERS that follow the Trace
//   api_pressure publish SOCKET INTERFACES RATE     makes RATE publications a second, of which half are rejected
//   api_pressure question SOCKET CLIENTS            asks 40 times a second for everything: Status, List, Config ...
//   api_pressure ask SOCKET INTERFACES              asks for an interface every 2 ms, and waits for each answer
//   api_pressure timer                              waits for a timer every 2 ms, and does nothing else
// Each runs until its standard input ends, and then prints one line of JSON. Those who press begin with the line
// "pressing", once they are there.
#include "ApiClient.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <memory>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;
using std::chrono::microseconds;
using Valen::Bench::ApiClient;

constexpr char frame[] =
   "0180c200000e02000000000188cc020704020000000001040703020000000001060200000000";
constexpr microseconds period{ 2000 };

bool readable( int fd, microseconds timeout = microseconds( 0 ) ) {
   pollfd each{ fd, POLLIN, 0 };
   timespec const wait{ timeout.count() / 1'000'000, timeout.count() % 1'000'000 * 1000 };
   return ::ppoll( &each, 1, &wait, nullptr ) > 0;
}

// The one who started this wants it to end.
bool ends( microseconds timeout = microseconds( 0 ) ) {
   return readable( STDIN_FILENO, timeout );
}

microseconds until( Clock::time_point time ) {
   return std::max( microseconds( 0 ), std::chrono::ceil< microseconds >( time - Clock::now() ) );
}

long since( Clock::time_point begin ) {
   return std::chrono::duration_cast< microseconds >( Clock::now() - begin ).count();
}

void pressing() {
   std::cout << "pressing" << std::endl;
}

// --- Those who press -----------------------------------------------------------------------------

Json watch( std::string const & socket, long interfaces, long clients, long followers ) {
   std::vector< std::unique_ptr< ApiClient > > connections;
   std::vector< pollfd > ready{ { STDIN_FILENO, POLLIN, 0 } };
   auto const call = [ & ]( std::string const & text ) {
      connections.push_back( std::make_unique< ApiClient >( socket ) );
      connections.back()->send( text );
      ready.push_back( { connections.back()->fd(), POLLIN, 0 } );
   };
   for ( long i = 0; i < clients; ++i ) {
      auto const interface = "Ethernet" + std::to_string( interfaces - 1 - i );
      call( ApiClient::encoded( "Watch", { { "path", "" } }, true ) );
      call( ApiClient::encoded( "WatchStatus", Json::object(), true ) );
      call( ApiClient::encoded( "Wait", { { "interface", interface }, { "until", "down" } } ) );
   }
   for ( long i = 0; i < followers; ++i ) {
      call( ApiClient::encoded( "Trace", Json::object(), true ) );
   }
   std::vector< bool > answered( connections.size() );
   auto missing = 2 * clients + followers; // a Wait has no answer
   std::size_t answers = 0;
   std::size_t bytes = 0;
   while ( ::poll( ready.data(), ready.size(), -1 ) > 0 && !ready[ 0 ].revents ) {
      for ( std::size_t i = 0; i < connections.size(); ++i ) {
         if ( !ready[ i + 1 ].revents ) {
            continue;
         }
         auto const text = connections[ i ]->receive();
         auto const count = ApiClient::ends( text );
         answers += count;
         bytes += text.size();
         if ( count && !answered[ i ] ) {
            answered[ i ] = true;
            if ( --missing == 0 ) {
               answers = bytes = 0;
               pressing();
            }
         }
      }
   }
   return { { "answers", answers }, { "megabytes", bytes / 1'000'000 } };
}

// The clients ask for everything in turn, one every 25 ms unless it still waits for its answer.
Json question( std::string const & socket, std::size_t clients ) {
   std::vector< std::string > const questions{
      ApiClient::encoded( "Status", Json::object() ),
      ApiClient::encoded( "ListMessages", Json::object() ),
      ApiClient::encoded( "List", Json::object() ),
      ApiClient::encoded( "Metrics", Json::object() ),
      ApiClient::encoded( "Show", { { "path", "interface" } } ),
      ApiClient::encoded( "Config", Json::object() ) };
   std::vector< std::unique_ptr< ApiClient > > connections;
   for ( std::size_t i = 0; i < clients; ++i ) {
      connections.push_back( std::make_unique< ApiClient >( socket ) );
   }
   std::vector< bool > waits( clients );
   std::size_t asked = 0;
   std::size_t answered = 0;
   pressing();
   while ( !ends( std::chrono::milliseconds( 25 ) ) ) {
      for ( std::size_t i = 0; i < clients; ++i ) {
         while ( waits[ i ] && readable( connections[ i ]->fd() ) ) {
            waits[ i ] = ApiClient::ends( connections[ i ]->receive() ) == 0;
            answered += !waits[ i ];
         }
      }
      auto const client = asked % clients;
      if ( !waits[ client ] ) {
         waits[ client ] = true;
         connections[ client ]->send( questions[ asked % questions.size() ] );
      }
      ++asked;
   }
   return { { "questions", answered } };
}

// Several at a time, every 10 ms, for all interfaces in turn; every second one for an interface that is not configured.
Json publish( std::string const & socket, long interfaces, long rate ) {
   ApiClient connection( socket );
   auto const batch = rate / 100;
   long sent = 0;
   auto const send = [ & ] {
      std::string calls;
      for ( auto const end = sent + batch; sent < end; ++sent ) {
         char tail[ 3 ];
         std::snprintf( tail, sizeof tail, "%02lx", sent / 2 % 256 );
         calls += ApiClient::encoded(
            "Publish",
            { { "agent", "press" },
              { "interface", sent % 2 ? "Ethernet" + std::to_string( sent / 2 % interfaces )
                                      : "Ethernet-unknown" },
              { "lifetime", "connection" },
              { "frames", { std::string( frame ) + tail } } } );
      }
      connection.send( calls );
      connection.skip( static_cast< std::size_t >( batch ) );
   };
   send();
   pressing();
   auto const begin = Clock::now();
   auto next = begin;
   long const before = sent;
   while ( !ends( until( next ) ) ) {
      send();
      next += std::chrono::milliseconds( 10 );
   }
   return { { "publications", ( sent - before ) * 1'000'000 / since( begin ) } };
}

// --- Those who measure ---------------------------------------------------------------------------

// In microseconds.
Json spread( std::vector< long > & times ) {
   std::sort( times.begin(), times.end() );
   auto const rank = [ & ]( double share ) {
      auto const index =
         static_cast< std::size_t >( share * static_cast< double >( times.size() ) );
      return times.empty() ? 0 : times[ std::min( index, times.size() - 1 ) ];
   };
   return { { "count", times.size() },
            { "median", rank( 0.5 ) },
            { "99", rank( 0.99 ) },
            { "99.9", rank( 0.999 ) },
            { "worst", rank( 1 ) } };
}

// A good client: asks for one interface after the other.
Json ask( std::string const & socket, long interfaces ) {
   ApiClient connection( socket );
   std::vector< long > times;
   for ( long i = 0; !ends( period ); ++i ) {
      auto const call = ApiClient::encoded(
         "Status", { { "interface", "Ethernet" + std::to_string( i % interfaces ) } } );
      auto const begin = Clock::now();
      connection.send( call );
      connection.skip( 1 );
      times.push_back( since( begin ) );
   }
   return spread( times );
}

// How late a process is that does nothing but wait for a timer: what the machine costs.
Json timer() {
   auto const fd = ::timerfd_create( CLOCK_MONOTONIC, TFD_CLOEXEC );
   std::vector< long > times;
   while ( !ends() ) {
      auto const due = Clock::now() + period;
      itimerspec setting{};
      setting.it_value.tv_nsec = std::chrono::nanoseconds( period ).count();
      std::uint64_t expirations;
      if ( fd < 0 || ::timerfd_settime( fd, 0, &setting, nullptr ) != 0 ||
           ::read( fd, &expirations, sizeof expirations ) < 0 ) {
         throw std::runtime_error( std::string( "timerfd: " ) + std::strerror( errno ) );
      }
      times.push_back( std::max( 0L, since( due ) ) );
   }
   return spread( times );
}

Json run( std::vector< std::string > const & words ) {
   auto const is = [ & ]( char const * part, std::size_t count ) {
      return words.size() == count && words[ 0 ] == part;
   };
   if ( is( "timer", 1 ) ) {
      return timer();
   }
   if ( is( "ask", 3 ) ) {
      return ask( words[ 1 ], std::stol( words[ 2 ] ) );
   }
   if ( is( "watch", 5 ) ) {
      return watch( words[ 1 ], std::stol( words[ 2 ] ), std::stol( words[ 3 ] ),
                    std::stol( words[ 4 ] ) );
   }
   if ( is( "question", 3 ) ) {
      return question( words[ 1 ], std::stoul( words[ 2 ] ) );
   }
   if ( is( "publish", 4 ) ) {
      return publish( words[ 1 ], std::stol( words[ 2 ] ), std::stol( words[ 3 ] ) );
   }
   throw std::runtime_error( "usage: api_pressure watch|publish|question|ask|timer ..." );
}

} // namespace

int main( int argc, char ** argv ) {
   try {
      std::cout << run( { argv + 1, argv + argc } ) << std::endl;
      return 0;
   } catch ( std::exception const & e ) {
      std::cerr << "api_pressure: " << e.what() << '\n';
      return 1;
   }
}
