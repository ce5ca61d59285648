#include "valenctl/database/DatabaseClient.h"

#include <csignal>

namespace Valenctl {

namespace {

// How many commands are outstanding at most. More would not be faster, and the server keeps the replies in memory.
constexpr std::size_t mostOutstanding = 500;

Database::Connection::Options optionsOf( std::string const & url ) {
   Database::Connection::Options options{ Database::Address::parse( url ), "valenctl" };
   options.timing.lastPause = std::chrono::seconds( 1 ); // an operator waits
   return options;
}

// Why a server rejects a command, with what to do where that is known.
std::string rejectionText( DatabaseClient::Command const & command, Database::Reply const & reply,
                           std::string const & url ) {
   auto const what = "database " + url + ": " + command.front() + ": " + reply.text;
   return reply.failedWith( "NOPERM" )
             ? what + " (the database user must have the rights of an operator)"
             : what;
}

} // namespace

DatabaseClient::DatabaseClient( std::string const & url, Milliseconds timeout )
    : url_( Database::Address::parse( url ).text() ), timeout_( timeout ),
      connection_( loop_, optionsOf( url ),
                   { .lost = [ this ]( std::string const & why ) { lost_ = why; } } ) {
   for ( int const number : { SIGINT, SIGTERM } ) {
      loop_.signalIs( number, [ this ] { interrupted_ = true; } );
   }
}

std::vector< Database::Reply > DatabaseClient::ask( std::vector< Command > const & commands ) {
   connect();
   std::vector< Database::Reply > replies( commands.size() );
   std::size_t given = 0, answered = 0;
   auto const give = [ & ] {
      for ( ;
            given < commands.size() && given - answered < mostOutstanding && connection_.canTake();
            ++given ) {
         std::vector< std::string_view > const words( commands[ given ].begin(),
                                                      commands[ given ].end() );
         connection_.command( words, [ &, reply = &replies[ given ] ]( Database::Reply answer ) {
            *reply = std::move( answer );
            ++answered;
         } );
      }
   };
   for ( auto end = deadline(); answered < commands.size(); ) {
      auto const before = answered;
      give();
      turnUntil( end );
      if ( !lost_.empty() ) {
         connection_.stop(); // nothing outstanding refers to this function any more
         throw NoDatabase( "database " + url_ + ": connection lost: " + lost_ );
      }
      if ( answered > before ) {
         end = deadline();
      } else if ( Clock::now() >= end ) {
         connection_.stop();
         throw NoDatabase( "database " + url_ + ": no answer within " +
                           std::to_string( timeout_.count() ) + " ms" );
      }
   }
   for ( std::size_t i = 0; i < commands.size(); ++i ) {
      if ( replies[ i ].failed() ) {
         throw std::runtime_error( rejectionText( commands[ i ], replies[ i ], url_ ) );
      }
   }
   return replies;
}

Database::Reply DatabaseClient::askOne( Command const & command ) {
   return std::move( ask( std::vector< Command >{ command } ).front() );
}

void DatabaseClient::pause( Milliseconds duration ) {
   for ( auto const end = Clock::now() + duration; Clock::now() < end; ) {
      turnUntil( end );
   }
}

void DatabaseClient::connect() {
   lost_.clear();
   connection_.start();
   for ( auto const end = deadline(); !connection_.up(); ) {
      turnUntil( end );
      if ( Clock::now() >= end || ( !lost_.empty() && !connection_.up() ) ) {
         connection_.stop();
         throw NoDatabase( "cannot connect to the database " + url_ + ": " +
                           ( lost_.empty() ? "no answer" : lost_ ) );
      }
   }
}

// Turns the loop once.
void DatabaseClient::turnUntil( Clock::time_point end ) {
   try {
      loop_.turn( std::max( Clock::duration::zero(), end - Clock::now() ) );
   } catch ( ... ) {
      connection_.stop();
      throw;
   }
   if ( interrupted_ ) {
      interrupted_ = false; // a second Ctrl-C interrupts what the first one led to
      connection_.stop();
      throw Interrupted();
   }
}

DatabaseClient::Clock::time_point DatabaseClient::deadline() const {
   return Clock::now() + ( timeout_.count() ? timeout_ : std::chrono::hours( 24 ) );
}

} // namespace Valenctl
