// The programs as processes: the daemon in a namespace that the test creates, and the operator's command.
#pragma once

#include "tests/linux/TestNetwork.h"
#include "tests/support/WorkDirectory.h"

#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sstream>
#include <sys/wait.h>

namespace Valen::Test {

inline std::string contentOf( std::string const & path ) {
   std::stringstream content;
   content << std::ifstream( path, std::ios::binary ).rdbuf();
   return content.str();
}

// A running program. Its output goes to files.
class Process {
 public:
   // Starts `arguments` as user `uid`, inside `netNs` if one is given. Standard error goes to `standardError`
   // if that is given.
   Process( std::vector< std::string > const & arguments, std::string const & outputs,
            TestNetNs const * netNs = nullptr, uid_t uid = 0, int standardError = -1 )
       : out_( outputs + ".out" ), err_( outputs + ".err" ) {
      std::vector< char * > argv;
      for ( auto const & argument : arguments ) {
         argv.push_back( const_cast< char * >( argument.c_str() ) );
      }
      argv.push_back( nullptr );
      pid_ = ::fork();
      if ( pid_ == 0 ) {
         std::optional< Linux::NetNs > opened;
         std::optional< Linux::NetNsScope > inside;
         if ( netNs ) {
            opened.emplace( Linux::NetNsDirectories().open( netNs->name() ) );
            inside.emplace( *opened );
         }
         redirect( out_, STDOUT_FILENO );
         redirect( err_, STDERR_FILENO );
         if ( standardError >= 0 ) {
            ::dup2( standardError, STDERR_FILENO );
         }
         if ( uid == 0 || ::setuid( uid ) == 0 ) {
            ::execv( argv[ 0 ], argv.data() );
         }
         ::_exit( 127 );
      }
   }
   ~Process() {
      if ( running() ) {
         signal( SIGKILL );
         wait();
      }
   }
   Process( Process const & ) = delete;
   Process & operator=( Process const & ) = delete;

   pid_t pid() const { return pid_; }
   void signal( int number ) const { ::kill( pid_, number ); }
   bool running() {
      int status = 0;
      if ( !status_ && ::waitpid( pid_, &status, WNOHANG ) == pid_ ) {
         status_ = status;
      }
      return !status_;
   }
   // Waits until the program ends. Returns the exit status, or 1000 plus the signal that ended it.
   int wait() {
      int status = 0;
      if ( !status_ && ::waitpid( pid_, &status, 0 ) == pid_ ) {
         status_ = status;
      }
      return WIFEXITED( *status_ ) ? WEXITSTATUS( *status_ ) : 1000 + WTERMSIG( *status_ );
   }
   std::string out() const { return contentOf( out_ ); }
   std::string err() const { return contentOf( err_ ); }

 private:
   static void redirect( std::string const & path, int descriptor ) {
      auto const fd = ::open( path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0666 );
      ::dup2( fd, descriptor );
      ::close( fd );
   }

   std::string const out_;
   std::string const err_;
   pid_t pid_ = -1;
   std::optional< int > status_;
};

// The output and exit status of a command.
struct Result {
   int status;
   std::string out;
   std::string err;
};

} // namespace Valen::Test
