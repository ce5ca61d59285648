// Calls valend as fast as it answers, from many clients at once, while its interfaces are shut down;
// checks that every call got its own answer, and how late the delays end.
//   api_load SOCKET CALLS CLIENTS SHUTDOWNS DELAY-MS
// Prints one line, and fails when an answer is wrong or missing, or a shutdown does not end down.
// bench/api_load starts valend and makes its interfaces.
#include "ApiClient.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <poll.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;
using Valen::Bench::ApiClient;

// What is asked, in turn; each answer holds the interface that it is about.
Json::json_pointer const answered[] = {
   Json::json_pointer( "/parameters/interfaces/0" ),
   Json::json_pointer( "/parameters/interfaces/0/name" ),
   Json::json_pointer( "/parameters/value/intfId" ),
};

class Load {
 public:
   Load( std::string const & socket, long calls, int clients, long shutdowns, long delayMs )
       : calls_( calls ), shutdowns_( shutdowns ), delayMs_( delayMs ), operator_( socket ) {
      for ( int i = 0; i < clients; ++i ) {
         clients_.push_back( std::make_unique< ApiClient >( socket ) );
      }
      operator_.call( "List", Json::object() );
      names_ = operator_.answer( true )->at( "parameters" ).at( "interfaces" );
      asked_.resize( clients_.size() );
   }

   int run() {
      auto const begin = Clock::now();
      for ( std::size_t i = 0; i < clients_.size() && begun_ < calls_; ++i ) {
         ask( i );
      }
      while ( done_ < calls_ || shutdownsDone_ < shutdowns_ ) {
         turn();
      }
      auto const seconds = std::chrono::duration< double >( Clock::now() - begin ).count();
      std::cout << done_ << " calls from " << clients_.size() << " clients in " << seconds << " s, "
                << wrong_ << " answers wrong; " << shutdownsDone_ << " shutdowns, delay "
                << delayMs_ << " ms, held " << least_ << " to " << most_ << " ms, worst end "
                << most_ - delayMs_ << " ms late\n";
      return wrong_ || badEndings_ || least_ < delayMs_ ? 1 : 0;
   }

 private:
   void turn() {
      // They are spread over the calls, each when its share of them is done.
      if ( !shuttingDown_ && shutdownsDone_ < shutdowns_ &&
           ( done_ == calls_ || done_ * shutdowns_ >= shutdownsDone_ * calls_ ) ) {
         shutDown();
      }
      std::vector< pollfd > ready{ { operator_.fd(), POLLIN, 0 } };
      for ( auto const & client : clients_ ) {
         ready.push_back( { client->fd(), POLLIN, 0 } );
      }
      if ( ::poll( ready.data(), ready.size(), 60'000 ) <= 0 ) {
         throw std::runtime_error( "valend has not answered for a minute; " +
                                   std::to_string( begun_ - done_ ) + " calls lost" );
      }
      for ( std::size_t i = 0; i < clients_.size(); ++i ) {
         if ( ready[ i + 1 ].revents ) {
            take( i );
         }
      }
      if ( ready[ 0 ].revents ) {
         takeSteps();
      }
   }

   // Several at a time, as one call; they are set up again once all are down.
   void shutDown() {
      auto const count = std::min< long >( 10, shutdowns_ - shutdownsDone_ );
      auto names = Json::array();
      for ( long i = 0; i < count; ++i ) {
         names.push_back(
            names_[ static_cast< std::size_t >( shutdownsDone_ + i ) % names_.size() ] );
      }
      down_ = names;
      operator_.call( "ShutdownMany", { { "interfaces", names } }, true );
      shuttingDown_ = true;
   }

   void takeSteps() {
      while ( auto const answer = operator_.answer( false ) ) {
         auto const & parameters = answer->at( "parameters" );
         if ( parameters.contains( "results" ) ) { // they are up again
            shuttingDown_ = false;
            continue;
         }
         for ( auto const & step : parameters.at( "steps" ) ) {
            if ( step.at( "step" ) == "ended" ) {
               ended( step.at( "shutdown" ) );
            }
         }
         if ( parameters.at( "pending" ) == 0 ) {
            operator_.call( "EnableMany", { { "interfaces", down_ } } );
         }
      }
   }

   void ended( Json const & shutdown ) {
      ++shutdownsDone_;
      badEndings_ += shutdown.at( "ending" ) != "down";
      long const held = shutdown.at( "heldMs" );
      least_ = std::min( least_, held );
      most_ = std::max( most_, held );
   }

   void ask( std::size_t client ) {
      auto const kind = static_cast< std::size_t >( begun_ ) % std::size( answered );
      auto const & name = names_[ static_cast< std::size_t >( begun_ ) % names_.size() ];
      asked_[ client ] = begun_++;
      switch ( kind ) {
      case 0:
         return clients_[ client ]->call( "List", { { "interfaces", { name } } } );
      case 1:
         return clients_[ client ]->call( "Status", { { "interface", name } } );
      default:
         return clients_[ client ]->call(
            "Show", { { "path", "interface/config/intfConfig/" + name.get< std::string >() } } );
      }
   }

   void take( std::size_t client ) {
      while ( auto const answer = clients_[ client ]->answer( false ) ) {
         auto const number = static_cast< std::size_t >( asked_[ client ] );
         auto const & field = answered[ number % std::size( answered ) ];
         wrong_ +=
            !answer->contains( field ) || answer->at( field ) != names_[ number % names_.size() ];
         ++done_;
         if ( begun_ < calls_ ) {
            ask( client );
         }
      }
   }

   long const calls_;
   long const shutdowns_;
   long const delayMs_;
   ApiClient operator_;                                  // shuts down
   std::vector< std::unique_ptr< ApiClient > > clients_; // each with at most one call in progress
   std::vector< long > asked_;                           // by client: the number of its call
   Json names_;
   Json down_;
   long begun_ = 0;
   long done_ = 0;
   long wrong_ = 0;
   bool shuttingDown_ = false;
   long shutdownsDone_ = 0;
   long badEndings_ = 0;
   long least_ = 1'000'000'000;
   long most_ = 0;
};

} // namespace

int main( int argc, char ** argv ) {
   if ( argc != 6 ) {
      std::cerr << "usage: api_load SOCKET CALLS CLIENTS SHUTDOWNS DELAY-MS\n";
      return 2;
   }
   try {
      return Load( argv[ 1 ], std::stol( argv[ 2 ] ), std::stoi( argv[ 3 ] ),
                   std::stol( argv[ 4 ] ), std::stol( argv[ 5 ] ) )
         .run();
   } catch ( std::exception const & e ) {
      std::cerr << "api_load: " << e.what() << '\n';
      return 1;
   }
}
