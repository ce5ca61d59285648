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
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr char frame[] =
   "0180c200000e02000000000188cc020704020000000001040703020000000001060200000000";
constexpr microseconds period{ 2000 };

// --- A connection --------------------------------------------------------------------------------

std::string encoded( char const * method, Json const & parameters, bool more = false ) {
   Json const call{ { "method", std::string( "org.valen.daemon." ) + method },
                    { "parameters", parameters },
                    { "more", more } };
   return call.dump() + '\0';
}

class Connection {
 public:
   explicit Connection( std::string const & path )
       : fd_( ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) ) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy( address.sun_path, sizeof address.sun_path - 1 );
      if ( ::connect( fd_, reinterpret_cast< sockaddr * >( &address ), sizeof address ) != 0 ) {
         throw std::runtime_error( "cannot connect to valend at " + path );
      }
   }
   ~Connection() { ::close( fd_ ); }
   Connection( Connection const & ) = delete;
   Connection & operator=( Connection const & ) = delete;

   int fd() const noexcept { return fd_; }

   void send( std::string_view text ) {
      while ( !text.empty() ) {
         auto const count = ::send( fd_, text.data(), text.size(), MSG_NOSIGNAL );
         if ( count < 0 ) {
            throw std::runtime_error( "a call could not be sent" );
         }
         text.remove_prefix( static_cast< std::size_t >( count ) );
      }
   }

   // What can be read; waits until that is something.
   std::string_view receive() {
      auto const count = ::recv( fd_, buffer_.data(), buffer_.size(), 0 );
      if ( count <= 0 ) {
         throw std::runtime_error( "valend closed the connection" );
      }
      return { buffer_.data(), static_cast< std::size_t >( count ) };
   }

   // Waits until so many answers have been read.
   void answers( std::size_t count ) {
      for ( std::size_t read = 0; read < count; ) {
         read += ends( receive() );
      }
   }

   static std::size_t ends( std::string_view text ) {
      return static_cast< std::size_t >( std::count( text.begin(), text.end(), '\0' ) );
   }

 private:
   int const fd_;
   std::vector< char > buffer_ = std::vector< char >( 1u << 18 );
};

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
   std::vector< std::unique_ptr< Connection > > connections;
   std::vector< pollfd > ready{ { STDIN_FILENO, POLLIN, 0 } };
   auto const call = [ & ]( std::string const & text ) {
      connections.push_back( std::make_unique< Connection >( socket ) );
      connections.back()->send( text );
      ready.push_back( { connections.back()->fd(), POLLIN, 0 } );
   };
   for ( long i = 0; i < clients; ++i ) {
      auto const interface = "Ethernet" + std::to_string( interfaces - 1 - i );
      call( encoded( "Watch", { { "path", "" } }, true ) );
      call( encoded( "WatchStatus", Json::object(), true ) );
      call( encoded( "Wait", { { "interface", interface }, { "until", "down" } } ) );
   }
   for ( long i = 0; i < followers; ++i ) {
      call( encoded( "Trace", Json::object(), true ) );
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
         auto const count = Connection::ends( text );
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
   std::vector< std::string > const questions{ encoded( "Status", Json::object() ),
                                               encoded( "ListMessages", Json::object() ),
                                               encoded( "List", Json::object() ),
                                               encoded( "Metrics", Json::object() ),
                                               encoded( "Show", { { "path", "interface" } } ),
                                               encoded( "Config", Json::object() ) };
   std::vector< std::unique_ptr< Connection > > connections;
   for ( std::size_t i = 0; i < clients; ++i ) {
      connections.push_back( std::make_unique< Connection >( socket ) );
   }
   std::vector< bool > waits( clients );
   std::size_t asked = 0;
   std::size_t answered = 0;
   pressing();
   while ( !ends( std::chrono::milliseconds( 25 ) ) ) {
      for ( std::size_t i = 0; i < clients; ++i ) {
         while ( waits[ i ] && readable( connections[ i ]->fd() ) ) {
            waits[ i ] = Connection::ends( connections[ i ]->receive() ) == 0;
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
   Connection connection( socket );
   auto const batch = rate / 100;
   long sent = 0;
   auto const send = [ & ] {
      std::string calls;
      for ( auto const end = sent + batch; sent < end; ++sent ) {
         char tail[ 3 ];
         std::snprintf( tail, sizeof tail, "%02lx", sent / 2 % 256 );
         calls += encoded(
            "Publish",
            { { "agent", "press" },
              { "interface", sent % 2 ? "Ethernet" + std::to_string( sent / 2 % interfaces )
                                      : "Ethernet-unknown" },
              { "lifetime", "connection" },
              { "frames", { std::string( frame ) + tail } } } );
      }
      connection.send( calls );
      connection.answers( static_cast< std::size_t >( batch ) );
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
   Connection connection( socket );
   std::vector< long > times;
   for ( long i = 0; !ends( period ); ++i ) {
      auto const call =
         encoded( "Status", { { "interface", "Ethernet" + std::to_string( i % interfaces ) } } );
      auto const begin = Clock::now();
      connection.send( call );
      connection.answers( 1 );
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
