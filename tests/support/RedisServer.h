// A Redis server of the test, on a Unix socket in a directory of its own. Keeps nothing on disk.
#pragma once

#include "tests/support/WorkDirectory.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <hiredis/hiredis.h>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Valen::Test {

class RedisServer {
 public:
   // Starts it, with more options if given, such as { "--maxclients", "10" }, and waits until it answers. It sends notices
   // of all keys, unless the options say otherwise.
   explicit RedisServer( std::vector< std::string > options = {} )
       : options_( std::move( options ) ) {
      start();
   }
   ~RedisServer() { kill(); }
   RedisServer( RedisServer const & ) = delete;
   RedisServer & operator=( RedisServer const & ) = delete;

   std::string socket() const { return work_ / "redis"; }
   std::string url() const { return "unix://" + socket(); }
   pid_t pid() const { return pid_; }

   // Starts it again, empty.
   void start() {
      std::vector< std::string > arguments = { "redis-server",
                                               "--port",
                                               "0",
                                               "--unixsocket",
                                               socket(),
                                               "--unixsocketperm",
                                               "777",
                                               "--save",
                                               "",
                                               "--appendonly",
                                               "no",
                                               "--dir",
                                               work_.path(),
                                               "--logfile",
                                               work_ / "log",
                                               "--notify-keyspace-events",
                                               "KA" };
      arguments.insert( arguments.end(), options_.begin(), options_.end() );
      std::vector< char * > argv;
      for ( auto & argument : arguments ) {
         argv.push_back( argument.data() );
      }
      argv.push_back( nullptr );
      auto const parent = ::getpid();
      pid_ = ::fork();
      if ( pid_ == 0 ) {
         ::prctl( PR_SET_PDEATHSIG, SIGKILL );
         if ( ::getppid() == parent ) {
            ::execvp( program, argv.data() );
         }
         ::_exit( 127 );
      }
      waitUntilItAnswers();
   }
   void kill() {
      client_.reset();
      if ( pid_ > 0 ) {
         signal( SIGKILL );
         ::waitpid( pid_, nullptr, 0 );
         pid_ = -1;
         ::unlink( socket().c_str() );
      }
   }
   void restart() {
      kill();
      start();
   }
   void signal( int number ) const { ::kill( pid_, number ); }
   // Stops its work, without any sign for its clients, or lets it go on.
   void freeze() const {
      signal( SIGSTOP );
      ::waitid( P_PID, static_cast< id_t >( pid_ ), nullptr, WSTOPPED | WNOWAIT );
   }
   void thaw() const { signal( SIGCONT ); }

   // Runs a command as a client of its own, and returns the answer as text: an error begins with "-", and the items of a
   // list are separated by a space.
   std::string operator()( std::vector< std::string > const & words ) const {
      if ( !client_ && !connect() ) {
         return "-no server";
      }
      std::vector< char const * > texts;
      std::vector< std::size_t > sizes;
      for ( auto const & word : words ) {
         texts.push_back( word.data() );
         sizes.push_back( word.size() );
      }
      std::unique_ptr< redisReply, void ( * )( void * ) > const reply(
         static_cast< redisReply * >( ::redisCommandArgv(
            client_.get(), static_cast< int >( words.size() ), texts.data(), sizes.data() ) ),
         ::freeReplyObject );
      if ( !reply ) {
         client_.reset();
         return "-no answer";
      }
      return textOf( *reply );
   }

 private:
   // The server, under the name that it has in the package without the service.
   static constexpr char const * program = "redis-check-rdb";

   struct Free {
      void operator()( redisContext * context ) const { ::redisFree( context ); }
   };

   bool connect() const {
      client_.reset( ::redisConnectUnixWithTimeout( socket().c_str(), { 10, 0 } ) );
      if ( !client_ || client_->err ) {
         client_.reset();
         return false;
      }
      ::redisSetTimeout( client_.get(), { 30, 0 } );
      return true;
   }
   // It may ask for a password.
   void waitUntilItAnswers() {
      auto const end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
      std::string answer;
      do {
         if ( ::waitpid( pid_, nullptr, WNOHANG ) == pid_ ) {
            pid_ = -1;
            throw std::runtime_error( "redis-server has exited: " + work_.content( "log" ) );
         }
         answer = ( *this )( { "PING" } );
         std::this_thread::sleep_for( std::chrono::milliseconds( 2 ) );
      } while ( answer != "PONG" && !answer.starts_with( "-NOAUTH" ) &&
                std::chrono::steady_clock::now() < end );
   }
   static std::string textOf( redisReply const & reply ) {
      switch ( reply.type ) {
      case REDIS_REPLY_ERROR:
         return "-" + std::string( reply.str, reply.len );
      case REDIS_REPLY_INTEGER:
         return std::to_string( reply.integer );
      case REDIS_REPLY_ARRAY: {
         std::string text;
         for ( std::size_t i = 0; i < reply.elements; ++i ) {
            text += ( i ? " " : "" ) + textOf( *reply.element[ i ] );
         }
         return text;
      }
      case REDIS_REPLY_NIL:
         return "";
      default:
         return { reply.str, reply.len };
      }
   }

   WorkDirectory const work_;
   std::vector< std::string > const options_;
   pid_t pid_ = -1;
   mutable std::unique_ptr< redisContext, Free > client_;
};

} // namespace Valen::Test
